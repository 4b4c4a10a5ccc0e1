#include "common/stopsignal.h"

#include <cerrno>
#include <cstdint>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

StopSignal::StopSignal() : m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
}

void StopSignal::raise()
{
    m_raised = true;
    const uint64_t one = 1;
    // It can only fail when the counter is full, and then it is readable.
    [[maybe_unused]] const ssize_t written = ::write(m_wake.get(), &one, sizeof(one));
}

void StopSignal::sleep(milliseconds time) const
{
    const steady_clock::time_point end = steady_clock::now() + time;
    pollfd wake = {m_wake.get(), POLLIN, 0};
    for (milliseconds left = time; left.count() > 0 && !m_raised;
         left = std::chrono::ceil<milliseconds>(end - steady_clock::now())) {
        ::poll(&wake, 1, static_cast<int>(left.count()));
    }
}

bool StopSignal::waitForInput(int fd) const
{
    pollfd sources[] = {{fd, POLLIN, 0}, {m_wake.get(), POLLIN, 0}};
    while (!m_raised && ::poll(sources, 2, -1) < 0 && errno == EINTR) {
    }
    return !m_raised;
}
