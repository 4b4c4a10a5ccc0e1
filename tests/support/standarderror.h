#pragma once

#include <QByteArray>
#include <QTemporaryFile>

#include <unistd.h>

/// What is written to standard error while this lives.
class StandardError
{
public:
    StandardError() : m_saved(::dup(STDERR_FILENO))
    {
        m_file.open();
        ::dup2(m_file.handle(), STDERR_FILENO);
    }
    ~StandardError()
    {
        ::dup2(m_saved, STDERR_FILENO);
        ::close(m_saved);
    }
    StandardError(const StandardError&) = delete;
    StandardError& operator=(const StandardError&) = delete;

    QByteArray text()
    {
        m_file.seek(0);
        return m_file.readAll();
    }

private:
    const int m_saved;
    QTemporaryFile m_file;
};
