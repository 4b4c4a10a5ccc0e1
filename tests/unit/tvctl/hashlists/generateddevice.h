#pragma once

#include <QByteArray>
#include <QIODevice>

/// A list of any length that is nowhere kept: a beginning, a middle that is repeated until it has some size,
/// and an end. Watches the heap while it is read.
class GeneratedDevice : public QIODevice
{
    Q_OBJECT

public:
    GeneratedDevice(QByteArray beginning, const QByteArray& middle, qint64 middleSize, QByteArray end);

    bool isSequential() const override
    {
        return true;
    }

    /// The most bytes of the heap that were in use at one of the reads, above those before the first.
    qint64 heapGrowth() const
    {
        return m_mostHeap - m_firstHeap;
    }

protected:
    qint64 readData(char* data, qint64 size) override;
    qint64 writeData(const char* data, qint64 size) override;

private:
    void watchHeap();

    const QByteArray m_beginning;
    const QByteArray m_middle;
    const qint64 m_middleSize;
    const QByteArray m_end;
    qint64 m_position = 0;
    qint64 m_nextLook = 0;
    qint64 m_firstHeap = -1;
    qint64 m_mostHeap = 0;
};
