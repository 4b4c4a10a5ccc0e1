#include "tvctl/detections/streamoutput.h"

#include "tvctl/console/toolerror.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

StreamOutput::StreamOutput()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    sigset_t held = signals;
    ::sigaddset(&held, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &held, &m_before);
    m_signals.reset(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!m_signals.isValid()) {
        const int error = errno;
        ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        throw ToolError(QStringLiteral("cannot wait for signals: %1").arg(qt_error_string(error)));
    }
}

StreamOutput::~StreamOutput()
{
    // What came meanwhile was meant for this, and would end the program the hard way now.
    sigset_t handled;
    ::sigemptyset(&handled);
    ::sigaddset(&handled, SIGINT);
    ::sigaddset(&handled, SIGTERM);
    ::sigaddset(&handled, SIGPIPE);
    const struct timespec noTime = {};
    while (::sigtimedwait(&handled, nullptr, &noTime) > 0) {
    }
    ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

bool StreamOutput::write(const QByteArray& bytes)
{
    int written = 0;
    while (written < bytes.size()) {
        const Event event = waitFor(POLLOUT, -1);
        if (event == Event::End) {
            return false;
        }
        if (event == Event::None) {
            continue;
        }
        // A pipe that can be written to takes as much without waiting.
        const auto size = static_cast<size_t>(std::min<int>(bytes.size() - written, PIPE_BUF));
        const ssize_t count = ::write(STDOUT_FILENO, bytes.constData() + written, size);
        if (count >= 0) {
            written += static_cast<int>(count);
        } else if (errno == EPIPE) {
            return false;
        } else if (errno != EINTR && errno != EAGAIN) {
            throw ToolError(QStringLiteral("standard output takes no more: %1").arg(qt_error_string(errno)));
        }
    }
    return true;
}

bool StreamOutput::wait(int milliseconds)
{
    return waitFor(0, milliseconds) != Event::End;
}

StreamOutput::Event StreamOutput::waitFor(short events, int milliseconds) const
{
    // That the reader of a pipe has gone is told whether asked for or not.
    struct pollfd watched[] = {{m_signals.get(), POLLIN, 0}, {STDOUT_FILENO, events, 0}};
    const int count = ::poll(watched, std::size(watched), milliseconds);
    if (count <= 0) {
        return Event::None;
    }
    if ((watched[0].revents & POLLIN) != 0 || (watched[1].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        return Event::End;
    }
    return Event::Writable;
}
