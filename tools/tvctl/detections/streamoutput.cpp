#include "tvctl/detections/streamoutput.h"

#include "tvctl/console/toolerror.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <iterator>

#include <poll.h>
#include <unistd.h>

StreamOutput::StreamOutput()
{
    struct sigaction ignoring = {};
    ignoring.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignoring, &m_brokenPipeBefore);
}

StreamOutput::~StreamOutput()
{
    ::sigaction(SIGPIPE, &m_brokenPipeBefore, nullptr);
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
    struct pollfd watched[] = {{m_interruption.descriptor(), POLLIN, 0}, {STDOUT_FILENO, events, 0}};
    const int count = ::poll(watched, std::size(watched), milliseconds);
    if (count <= 0) {
        return Event::None;
    }
    if ((watched[0].revents & POLLIN) != 0 || (watched[1].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        return Event::End;
    }
    return Event::Writable;
}
