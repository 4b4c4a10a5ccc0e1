#include "faultyfiles.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

// The dynamic linker finds these before the C library's; SQLite comes in with a plug-in, later.

namespace
{
FaultyFiles::Fault injected = FaultyFiles::Fault::None;
const char* faultyName = "";
std::set<int>& faultyDescriptors()
{
    static std::set<int> descriptors;
    return descriptors;
}

/// From where on reading fails, in bytes; nowhere when it is negative.
off64_t firstFaultyByte()
{
    constexpr off64_t pageSize = 4096;
    switch (injected) {
    case FaultyFiles::Fault::ReadError:
        return 0;
    case FaultyFiles::Fault::LateReadError:
        return pageSize;
    case FaultyFiles::Fault::LaterReadError:
        return 2 * pageSize;
    default:
        return -1;
    }
}

bool isReadFaulty()
{
    return firstFaultyByte() >= 0;
}

template <typename Function> Function* real(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

/// The error number with which opening fails, 0 when it does not.
int openError(const char* path, int flags)
{
    if (std::strstr(path, faultyName) == nullptr) {
        return 0;
    }
    switch (injected) {
    case FaultyFiles::Fault::Unreadable:
        return EACCES;
    case FaultyFiles::Fault::ReadOnly:
        return (flags & O_ACCMODE) == O_RDONLY ? 0 : EROFS;
    default:
        return 0;
    }
}
} // namespace

void FaultyFiles::inject(Fault fault, const char* name)
{
    injected = fault;
    faultyName = name;
    faultyDescriptors().clear();
    if (!isReadFaulty()) {
        return;
    }
    // Those that are open already.
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error).string().find(name) != std::string::npos) {
            faultyDescriptors().insert(std::stoi(entry.path().filename().string()));
        }
    }
}

extern "C" __attribute__((visibility("default"))) int open64(const char* path, int flags, ...)
{
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = static_cast<mode_t>(va_arg(arguments, int));
        va_end(arguments);
    }
    const int error = openError(path, flags);
    if (error != 0) {
        errno = error;
        return -1;
    }
    static const auto realOpen = real<int(const char*, int, ...)>("open64");
    const int fd = realOpen(path, flags, mode);
    if (fd >= 0 && isReadFaulty() && std::strstr(path, faultyName) != nullptr) {
        faultyDescriptors().insert(fd);
    }
    return fd;
}

extern "C" __attribute__((visibility("default"))) ssize_t pread64(int fd, void* buffer, size_t size,
                                                                  off64_t offset)
{
    if (isReadFaulty() && offset >= firstFaultyByte() && faultyDescriptors().count(fd) != 0) {
        errno = EIO;
        return -1;
    }
    static const auto realPread = real<ssize_t(int, void*, size_t, off64_t)>("pread64");
    return realPread(fd, buffer, size, offset);
}

/// Asked for by the library before it reads without locks: root may write everywhere but on a read-only
/// file system.
extern "C" __attribute__((visibility("default"))) int faccessat(int directory, const char* path, int access,
                                                                int flags) noexcept
{
    if (injected == FaultyFiles::Fault::ReadOnly && (access & W_OK) != 0) {
        errno = EROFS;
        return -1;
    }
    static const auto realFaccessat = real<int(int, const char*, int, int)>("faccessat");
    return realFaccessat(directory, path, access, flags);
}
