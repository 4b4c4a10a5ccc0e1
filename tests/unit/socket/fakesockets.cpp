#include "fakesockets.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr int ownPort = 8889;
/// Guards what was asked for last: two listeners may ask at a time.
std::mutex recording;

template <typename Function> Function* realFunction(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}
} // namespace

std::atomic<int> FakeSockets::port = 0;
int FakeSockets::holder = -1;
std::atomic<int> FakeSockets::socketError = 0;
std::atomic<int> FakeSockets::optionError = 0;
std::atomic<int> FakeSockets::bindError = 0;
std::atomic<int> FakeSockets::listenError = 0;
std::atomic<int> FakeSockets::acceptError = 0;
std::atomic<int> FakeSockets::acceptFailures = -1;
int FakeSockets::family = 0;
int FakeSockets::type = 0;
int FakeSockets::protocol = 0;
int FakeSockets::optionLevel = 0;
int FakeSockets::optionName = 0;
int FakeSockets::optionValue = 0;
sockaddr_in FakeSockets::address = {};
socklen_t FakeSockets::addressSize = 0;
std::atomic<int> FakeSockets::backlog = 0;
std::atomic<int> FakeSockets::binds = 0;

void FakeSockets::reset()
{
    socketError = 0;
    optionError = 0;
    bindError = 0;
    listenError = 0;
    acceptError = 0;
    acceptFailures = -1;

    if (holder >= 0) {
        ::close(holder);
    }
    holder = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(holder, SOL_SOCKET, SO_REUSEPORT, &on, sizeof(on));
    sockaddr_in any = {};
    any.sin_family = AF_INET;
    socklen_t size = sizeof(any);
    if (::bind(holder, reinterpret_cast<sockaddr*>(&any), sizeof(any)) != 0 ||
        ::getsockname(holder, reinterpret_cast<sockaddr*>(&any), &size) != 0) {
        std::abort();
    }
    port = ntohs(any.sin_port);
    binds = 0;
    backlog = 0;
}

extern "C" int socket(int family, int type, int protocol) noexcept
{
    static auto* const real = realFunction<int(int, int, int)>("socket");
    {
        const std::lock_guard<std::mutex> lock(recording);
        FakeSockets::family = family;
        FakeSockets::type = type;
        FakeSockets::protocol = protocol;
    }
    if (FakeSockets::socketError != 0) {
        errno = FakeSockets::socketError;
        return -1;
    }
    return real(family, type, protocol);
}

extern "C" int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept
{
    static auto* const real = realFunction<int(int, int, int, const void*, socklen_t)>("setsockopt");
    if (name != SO_REUSEPORT) {
        return real(fd, level, name, value, size);
    }
    {
        const std::lock_guard<std::mutex> lock(recording);
        FakeSockets::optionLevel = level;
        FakeSockets::optionName = name;
        memcpy(&FakeSockets::optionValue, value, sizeof(int));
    }
    if (FakeSockets::optionError != 0) {
        errno = FakeSockets::optionError;
        return -1;
    }
    return real(fd, level, name, value, size);
}

extern "C" int bind(int fd, const sockaddr* address, socklen_t size) noexcept
{
    static auto* const real = realFunction<int(int, const sockaddr*, socklen_t)>("bind");
    ++FakeSockets::binds;
    sockaddr_in used = {};
    memcpy(&used, address, sizeof(used));
    {
        const std::lock_guard<std::mutex> lock(recording);
        FakeSockets::address = used;
        FakeSockets::addressSize = size;
    }
    if (FakeSockets::bindError != 0) {
        errno = FakeSockets::bindError;
        return -1;
    }
    if (used.sin_port == htons(ownPort)) {
        used.sin_port = htons(static_cast<uint16_t>(FakeSockets::port));
    }
    return real(fd, reinterpret_cast<const sockaddr*>(&used), sizeof(used));
}

extern "C" int listen(int fd, int backlog) noexcept
{
    static auto* const real = realFunction<int(int, int)>("listen");
    FakeSockets::backlog = backlog;
    if (FakeSockets::listenError != 0) {
        errno = FakeSockets::listenError;
        return -1;
    }
    return real(fd, backlog);
}

extern "C" int accept4(int fd, sockaddr* address, socklen_t* size, int flags)
{
    static auto* const real = realFunction<int(int, sockaddr*, socklen_t*, int)>("accept4");
    if (FakeSockets::acceptError != 0 && FakeSockets::acceptFailures != 0) {
        --FakeSockets::acceptFailures;
        errno = FakeSockets::acceptError;
        return -1;
    }
    return real(fd, address, size, flags);
}
