#include "support/fakefiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

QVector<QByteArray> FakeFiles::calls;
QHash<QByteArray, FakeFiles::Failure> FakeFiles::failures;
std::function<void(const QByteArray&)> FakeFiles::onCall;
size_t FakeFiles::longestWrite = 0;

void FakeFiles::reset()
{
    calls.clear();
    failures.clear();
    onCall = nullptr;
    longestWrite = 0;
}

namespace
{
template <typename Function> Function* real(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

/// True when the call is to fail; errno is set then.
bool fails(const QByteArray& call)
{
    if (FakeFiles::onCall) {
        FakeFiles::onCall(call);
    }
    const auto failure = FakeFiles::failures.find(call);
    if (failure == FakeFiles::failures.end()) {
        return false;
    }
    if (failure->after > 0) {
        --failure->after;
        return false;
    }
    if (failure->count == 0) {
        return false;
    }
    --failure->count;
    errno = failure->error;
    return true;
}

bool recordedFails(const QByteArray& call)
{
    FakeFiles::calls.append(call);
    return fails(call);
}
} // namespace

extern "C" {

int openat(int directory, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if ((flags & O_CREAT) != 0 ? recordedFails("openat create") : fails("openat")) {
        return -1;
    }
    static const auto next = real<int(int, const char*, int, ...)>("openat");
    return next(directory, path, flags, mode);
}

ssize_t read(int fd, void* buffer, size_t size)
{
    static const auto next = real<decltype(read)>("read");
    return fails("read") ? -1 : next(fd, buffer, size);
}

ssize_t write(int fd, const void* buffer, size_t size)
{
    static const auto next = real<decltype(write)>("write");
    if (fails("write")) {
        return -1;
    }
    return next(fd, buffer, FakeFiles::longestWrite == 0 ? size : std::min(size, FakeFiles::longestWrite));
}

int fsync(int fd)
{
    struct stat status = {};
    const bool isDirectory = ::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
    if (recordedFails(isDirectory ? "fsync directory" : "fsync file")) {
        return -1;
    }
    static const auto next = real<decltype(fsync)>("fsync");
    return next(fd);
}

int linkat(int fromDirectory, const char* from, int toDirectory, const char* to, int flags) noexcept
{
    if (recordedFails("linkat")) {
        return -1;
    }
    static const auto next = real<int(int, const char*, int, const char*, int)>("linkat");
    return next(fromDirectory, from, toDirectory, to, flags);
}

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to, unsigned flags) noexcept
{
    if (recordedFails("renameat2")) {
        return -1;
    }
    static const auto next = real<int(int, const char*, int, const char*, unsigned)>("renameat2");
    return next(fromDirectory, from, toDirectory, to, flags);
}

int unlinkat(int directory, const char* path, int flags) noexcept
{
    if (recordedFails("unlinkat")) {
        return -1;
    }
    static const auto next = real<int(int, const char*, int)>("unlinkat");
    return next(directory, path, flags);
}

} // extern "C"
