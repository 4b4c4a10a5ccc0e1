// Counts, from within the service, what cannot be seen from outside: how many scans were done, whether the
// kernel's queue of events overflowed, when the port was opened and when all directories were watched, so
// that events are waited for.
//
// Loaded by LD_PRELOAD. The counts are in the file that TVFILEMON_BENCH_OBSERVER names, as whole numbers of
// eight bytes in the order of `Count`, and can be read from there at any time.
#include "common/uniquefd.h"
#include "kit/clock.h"
#include "kit/program.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>

#include <clamav.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{
enum Count
{
    Scans,
    ScanNanoseconds,
    ListeningSince,
    WatchingBegan,
    WatchingEnded,
    Watches,
    EventReads,
    Events,
    Overflows,
    CountEnd
};

using Counts = std::array<std::atomic<int64_t>, CountEnd>;

Counts* openCounts()
{
    const char* path = std::getenv("TVFILEMON_BENCH_OBSERVER");
    const UniqueFd file(path == nullptr ? -1 : ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!file.isValid() || ::ftruncate(file.get(), sizeof(Counts)) != 0) {
        Program::fail("TVFILEMON_BENCH_OBSERVER names no file that can be written", errno);
    }
    void* memory = ::mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    if (memory == MAP_FAILED) {
        Program::fail("mmap", errno);
    }
    return static_cast<Counts*>(memory);
}

std::atomic<int64_t>& count(Count which)
{
    static Counts* const counts = openCounts();
    return (*counts)[which];
}

template <typename Function> Function* real(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

std::atomic<int> inotifyDescriptor = {-1};

void countEvents(const char* buffer, ssize_t size)
{
    ++count(EventReads);
    for (ssize_t offset = 0; offset < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
        ++count((event->mask & IN_Q_OVERFLOW) != 0 ? Overflows : Events);
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
}
} // namespace

#define OBSERVED extern "C" __attribute__((visibility("default")))

OBSERVED cl_error_t cl_scandesc_callback(int file, const char* path, const char** name,
                                         unsigned long int* scanned, const cl_engine* engine,
                                         cl_scan_options* options, void* context)
{
    static auto* const next = real<decltype(cl_scandesc_callback)>("cl_scandesc_callback");
    const int64_t begin = nanosecondsNow();
    const cl_error_t result = next(file, path, name, scanned, engine, options, context);
    ++count(Scans);
    count(ScanNanoseconds) += nanosecondsNow() - begin;
    return result;
}

OBSERVED int listen(int socket, int backlog) noexcept
{
    static auto* const next = real<int(int, int)>("listen");
    const int result = next(socket, backlog);
    count(ListeningSince) = nanosecondsNow();
    return result;
}

OBSERVED int inotify_init1(int flags) noexcept
{
    static auto* const next = real<int(int)>("inotify_init1");
    const int result = next(flags);
    inotifyDescriptor = result;
    count(WatchingBegan) = nanosecondsNow();
    return result;
}

OBSERVED int inotify_add_watch(int descriptor, const char* path, uint32_t mask) noexcept
{
    static auto* const next = real<int(int, const char*, uint32_t)>("inotify_add_watch");
    const int result = next(descriptor, path, mask);
    // Nothing more: the bare side does not even this.
    ++count(Watches);
    return result;
}

OBSERVED int poll(pollfd* files, nfds_t size, int milliseconds)
{
    static auto* const next = real<int(pollfd*, nfds_t, int)>("poll");
    const auto isInotify = [](const pollfd& file) {
        return file.fd == inotifyDescriptor;
    };
    if (count(WatchingEnded) == 0 && inotifyDescriptor >= 0 && std::any_of(files, files + size, isInotify)) {
        count(WatchingEnded) = nanosecondsNow();
    }
    return next(files, size, milliseconds);
}

OBSERVED ssize_t read(int descriptor, void* buffer, size_t size)
{
    static auto* const next = real<ssize_t(int, void*, size_t)>("read");
    const ssize_t result = next(descriptor, buffer, size);
    if (result > 0 && descriptor == inotifyDescriptor) {
        countEvents(static_cast<const char*>(buffer), result);
    }
    return result;
}
