#pragma once

#include "common/uniquefd.h"

#include <QByteArray>

#include <csignal>
#include <stdexcept>

#include <fcntl.h>

/// A write lease on a file, until the end of the object: whoever opens the file meanwhile has to wait.
class Lease
{
public:
    explicit Lease(const QByteArray& path) : m_file(::open(path.constData(), O_RDWR | O_CLOEXEC))
    {
        // The kernel asks for the lease back by this signal, which ends a program.
        std::signal(SIGIO, SIG_IGN);
        if (::fcntl(m_file.get(), F_SETLEASE, F_WRLCK) != 0) {
            throw std::runtime_error("no lease on " + path.toStdString());
        }
    }

private:
    UniqueFd m_file;
};
