#include "tvctl/commands/standardinput.h"

#include <cerrno>
#include <iterator>

#include <poll.h>
#include <unistd.h>

StandardInput::StandardInput(int interruption) : m_interruption(interruption)
{
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

qint64 StandardInput::readData(char* data, qint64 size)
{
    struct pollfd polled[] = {{STDIN_FILENO, POLLIN, 0}, {m_interruption, POLLIN, 0}};
    TEMP_FAILURE_RETRY(::poll(polled, std::size(polled), -1));
    m_isAtEnd = polled[1].revents != 0;
    if (m_isAtEnd) {
        return 0;
    }
    const ssize_t got = TEMP_FAILURE_RETRY(::read(STDIN_FILENO, data, static_cast<size_t>(size)));
    if (got < 0) {
        setErrorString(qt_error_string(errno));
    }
    m_isAtEnd = got == 0;
    return got;
}

qint64 StandardInput::writeData(const char* /*data*/, qint64 /*size*/)
{
    return -1;
}
