#include "kit/removalwatch.h"

#include "kit/clock.h"
#include "kit/program.h"

#include <array>
#include <cerrno>
#include <string_view>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace
{
bool endsWith(std::string_view name, std::string_view suffix)
{
    return name.size() >= suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
}
} // namespace

RemovalWatch::RemovalWatch(const std::string& directory) : m_inotify(::inotify_init1(IN_CLOEXEC))
{
    if (::inotify_add_watch(m_inotify.get(), directory.c_str(), IN_DELETE | IN_MOVED_FROM) < 0) {
        Program::fail(directory, errno);
    }
}

int64_t RemovalWatch::waitFor(const std::string& suffix, int64_t count, int timeoutSeconds)
{
    alignas(inotify_event) std::array<char, 65536> buffer = {};
    while (count > 0) {
        pollfd input = {m_inotify.get(), POLLIN, 0};
        if (::poll(&input, 1, timeoutSeconds * 1000) <= 0) {
            return -1;
        }
        const ssize_t size = ::read(m_inotify.get(), buffer.data(), buffer.size());
        if (size <= 0) {
            Program::fail("inotify", errno);
        }
        for (ssize_t offset = 0; offset < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + offset);
            if ((event->mask & IN_Q_OVERFLOW) != 0) {
                Program::fail("removals were lost");
            }
            if (event->len > 0 && endsWith(event->name, suffix)) {
                --count;
            }
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    return nanosecondsNow();
}
