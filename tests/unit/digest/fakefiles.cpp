#include "fakefiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

int FakeFiles::openError = 0;
int FakeFiles::lookError = 0;
int FakeFiles::readError = 0;
int FakeFiles::readErrorAt = 0;
int FakeFiles::opened = 0;
int FakeFiles::reads = 0;
size_t FakeFiles::largestRead = 0;

void FakeFiles::reset()
{
    openError = 0;
    lookError = 0;
    readError = 0;
    readErrorAt = 0;
    opened = 0;
    reads = 0;
    largestRead = 0;
}

/// What is linked statically calls this; the libraries keep the C library's own.
extern "C" int open(const char* path, int flags, ...)
{
    using Open = int (*)(const char*, int, ...);
    static const auto real = reinterpret_cast<Open>(::dlsym(RTLD_NEXT, "open"));
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    const int error = (flags & O_PATH) != 0 ? FakeFiles::lookError : FakeFiles::openError;
    if (error != 0) {
        errno = error;
        return -1;
    }
    FakeFiles::opened += (flags & O_PATH) != 0 ? 0 : 1;
    return real(path, flags, mode);
}

extern "C" ssize_t read(int fd, void* buffer, size_t size)
{
    using Read = ssize_t (*)(int, void*, size_t);
    static const auto real = reinterpret_cast<Read>(::dlsym(RTLD_NEXT, "read"));
    if (FakeFiles::readError != 0 && FakeFiles::reads >= FakeFiles::readErrorAt) {
        errno = FakeFiles::readError;
        return -1;
    }
    ++FakeFiles::reads;
    FakeFiles::largestRead = std::max(FakeFiles::largestRead, size);
    return real(fd, buffer, size);
}
