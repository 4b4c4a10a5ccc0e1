#pragma once

#include <QString>

#include <stdexcept>

/// What stops a command: one line that says what is wrong and what to do next. Thrown by commands, caught
/// by `main` alone, which prints it and ends with ExitCode::Error.
class ToolError : public std::runtime_error
{
public:
    explicit ToolError(const QString& message);

    const QString& message() const
    {
        return m_message;
    }

private:
    QString m_message;
};
