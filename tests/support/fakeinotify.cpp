#include "support/fakeinotify.h"

#include "common/uniquefd.h"

#include <QFileInfo>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace
{
QByteArray fakeRoot;
std::array<int, 2> ends = {-1, -1};
int nextDescriptor = 1;

/// Where `descriptor` is, without the root that stands for "/".
QByteArray placeOf(int descriptor)
{
    std::array<char, PATH_MAX> target = {};
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(descriptor);
    const ssize_t size = ::readlink(link.constData(), target.data(), target.size());
    const QByteArray path(target.data(), static_cast<int>(std::max<ssize_t>(size, 0)));
    if (!path.startsWith(fakeRoot + '/')) {
        qFatal("watched by no descriptor of the tree");
    }
    return path.mid(fakeRoot.size());
}
} // namespace

int FakeInotify::initError = 0;
QHash<QByteArray, int> FakeInotify::watchErrors;
QHash<QByteArray, int> FakeInotify::chosenDescriptors;
std::function<void(const QByteArray& path)> FakeInotify::onWatch;
QVector<FakeInotify::Watch> FakeInotify::watches;
int FakeInotify::initCalls = 0;
int FakeInotify::removals = 0;

void FakeInotify::reset(const QString& root)
{
    fakeRoot = QFileInfo(root).canonicalFilePath().toUtf8();
    for (int& end : ends) {
        if (end >= 0) {
            ::close(end);
        }
        end = -1;
    }
    nextDescriptor = 1;
    initError = 0;
    initCalls = 0;
    removals = 0;
    watchErrors.clear();
    onWatch = nullptr;
    chosenDescriptors.clear();
    watches.clear();
}

void FakeInotify::deliver(const QByteArray& records)
{
    if (::write(ends[1], records.constData(), static_cast<size_t>(records.size())) != records.size()) {
        qFatal("the fake kernel cannot deliver");
    }
}

QByteArray FakeInotify::record(int descriptor, uint32_t mask, const QByteArray& name)
{
    inotify_event header = {};
    header.wd = descriptor;
    header.mask = mask;
    const int unit = static_cast<int>(sizeof(header));
    header.len = name.isEmpty() ? 0 : static_cast<uint32_t>((name.size() / unit + 1) * unit);
    return QByteArray(reinterpret_cast<const char*>(&header), unit) +
           name.leftJustified(static_cast<int>(header.len), '\0');
}

int FakeInotify::descriptorOf(const QByteArray& path)
{
    int descriptor = 0;
    for (const Watch& watch : watches) {
        if (watch.path == path) {
            descriptor = watch.descriptor;
        }
    }
    return descriptor;
}

QVector<QByteArray> FakeInotify::watchedPaths()
{
    QVector<QByteArray> paths;
    for (const Watch& watch : watches) {
        paths.append(watch.path);
    }
    return paths;
}

void FakeInotify::breakDescriptor()
{
    // Reading the writing end fails; the number stays the monitor's.
    ::dup2(ends[1], ends[0]);
}

extern "C" int inotify_init1(int flags) noexcept
{
    ++FakeInotify::initCalls;
    if (FakeInotify::initError != 0) {
        errno = FakeInotify::initError;
        return -1;
    }
    const bool closesOnExec = (flags & IN_CLOEXEC) != 0;
    return ::pipe2(ends.data(), closesOnExec ? O_CLOEXEC : 0) == 0 ? ends[0] : -1;
}

extern "C" int inotify_add_watch(int fd, const char* path, uint32_t mask) noexcept
{
    // As the kernel follows the path, and then keeps nothing of how.
    const int links = (mask & IN_DONT_FOLLOW) != 0 ? O_NOFOLLOW : 0;
    const int kind = (mask & IN_ONLYDIR) != 0 ? O_DIRECTORY : 0;
    const UniqueFd object(::open(path, O_PATH | O_CLOEXEC | links | kind));
    if (!object.isValid()) {
        return -1;
    }
    const QByteArray name = placeOf(object.get());
    if (FakeInotify::onWatch) {
        FakeInotify::onWatch(name);
    }
    const int error = FakeInotify::watchErrors.value(name, 0);
    if (error != 0) {
        errno = error;
        return -1;
    }
    const int chosen = FakeInotify::chosenDescriptors.value(name, 0);
    const int descriptor = chosen != 0 ? chosen : nextDescriptor++;
    FakeInotify::watches.append({fd, name, mask & ~uint32_t(IN_DONT_FOLLOW | IN_ONLYDIR), descriptor});
    return descriptor;
}

extern "C" int inotify_rm_watch(int, int) noexcept
{
    ++FakeInotify::removals;
    return 0;
}

extern "C" int open(const char* path, int flags, ...)
{
    using Open = int (*)(const char*, int, ...);
    static const auto real = reinterpret_cast<Open>(::dlsym(RTLD_NEXT, "open"));
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    const QByteArray name(path);
    // Only what watches opens a directory at the top like this.
    const bool isOfTheTree = (flags & O_PATH) != 0 && name.startsWith('/') && name.count('/') == 1;
    return real(isOfTheTree ? (fakeRoot + name).constData() : path, flags, mode);
}
