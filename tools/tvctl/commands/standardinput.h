#pragma once

#include <QIODevice>

/// Standard input, which may come slowly or never: reading ends when somebody does not want to wait any
/// longer.
class StandardInput : public QIODevice
{
public:
    /// `interruption` is a descriptor that becomes readable then.
    explicit StandardInput(int interruption);

    bool isSequential() const override
    {
        return true;
    }
    /// Also after an interruption.
    bool atEnd() const override
    {
        return m_isAtEnd;
    }

protected:
    qint64 readData(char* data, qint64 size) override;
    qint64 writeData(const char* data, qint64 size) override;

private:
    const int m_interruption;
    bool m_isAtEnd = false;
};
