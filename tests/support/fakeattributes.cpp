#include "support/fakeattributes.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <tuple>

#include <sys/stat.h>
#include <sys/types.h>

int FakeAttributes::error = 0;

namespace
{
using Key = std::tuple<dev_t, ino_t, QByteArray>;
std::map<Key, QByteArray> attributes;

Key keyOf(const struct stat& file, const QByteArray& name)
{
    return {file.st_dev, file.st_ino, name};
}

/// The attribute of an open file; errno is set when there is none to be had.
bool findsKey(int fd, const char* name, Key& key)
{
    struct stat status = {};
    if (FakeAttributes::error != 0) {
        errno = FakeAttributes::error;
        return false;
    }
    if (::fstat(fd, &status) != 0) {
        return false;
    }
    key = keyOf(status, name);
    return true;
}
} // namespace

void FakeAttributes::reset()
{
    attributes.clear();
    error = 0;
}

QByteArray FakeAttributes::value(const struct stat& file, const QByteArray& name)
{
    const auto found = attributes.find(keyOf(file, name));
    return found == attributes.end() ? QByteArray() : found->second;
}

void FakeAttributes::setValue(const struct stat& file, const QByteArray& name, const QByteArray& value)
{
    attributes[keyOf(file, name)] = value;
}

extern "C" {

int fsetxattr(int fd, const char* name, const void* value, size_t size, int /*flags*/) noexcept
{
    Key key;
    if (!findsKey(fd, name, key)) {
        return -1;
    }
    attributes[key] = QByteArray(static_cast<const char*>(value), static_cast<int>(size));
    return 0;
}

ssize_t fgetxattr(int fd, const char* name, void* value, size_t size) noexcept
{
    Key key;
    if (!findsKey(fd, name, key)) {
        return -1;
    }
    const auto found = attributes.find(key);
    if (found == attributes.end()) {
        errno = ENODATA;
        return -1;
    }
    if (static_cast<size_t>(found->second.size()) > size) {
        errno = ERANGE;
        return -1;
    }
    std::memcpy(value, found->second.constData(), static_cast<size_t>(found->second.size()));
    return found->second.size();
}

int fremovexattr(int fd, const char* name) noexcept
{
    Key key;
    if (!findsKey(fd, name, key)) {
        return -1;
    }
    if (attributes.erase(key) == 0) {
        errno = ENODATA;
        return -1;
    }
    return 0;
}

} // extern "C"
