#include "common/heldfile.h"

#include "common/opendirectory.h"
#include "common/sameinode.h"

#include <cerrno>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace
{
QByteArray directoryOf(const QByteArray& path)
{
    const int slash = path.lastIndexOf('/');
    return slash < 0 ? QByteArrayLiteral(".") : path.left(slash + 1);
}

/// A path that ends in a slash names the directory in front of it.
QByteArray nameOf(const QByteArray& path)
{
    const QByteArray name = path.mid(path.lastIndexOf('/') + 1);
    return name.isEmpty() && !path.isEmpty() ? QByteArrayLiteral(".") : name;
}

bool isLink(const CheckedFile& file)
{
    return S_ISLNK(file.status().st_mode);
}
} // namespace

HeldFile::Directory HeldFile::openDirectory(const QByteArray& path)
{
    Directory directory = {UniqueFd(::open(path.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC))};
    directory.error = directory.descriptor.isValid() ? 0 : errno;
    return directory;
}

HeldFile::HeldFile(const QByteArray& path) : HeldFile(path, openDirectory(directoryOf(path)))
{
}

HeldFile HeldFile::atAnyDepth(const QByteArray& path)
{
    Directory directory = openDirectory(directoryOf(path));
    if (directory.error == ENAMETOOLONG) {
        directory.descriptor = openDirectoryWithoutLinks(directoryOf(path));
        directory.error = directory.descriptor.isValid() ? 0 : errno;
    }
    return {path, std::move(directory)};
}

HeldFile::HeldFile(const QByteArray& path, Directory parent)
    : m_name(nameOf(path)),
      m_directoryPath(directoryOf(path)),
      m_directory(std::move(parent.descriptor)),
      m_error(parent.error)
{
    if (m_error != 0) {
        return;
    }
    m_entry = CheckedFile(m_directory, m_name);
    if (m_entry.kind() == CheckedFile::Kind::Missing) {
        m_error = errno;
        return;
    }
    if (isLink(m_entry)) {
        const QByteArray directory = "/proc/self/fd/" + QByteArray::number(m_directory.get());
        m_target = CheckedFile(directory + '/' + m_name);
        if (m_target.kind() == CheckedFile::Kind::Missing) {
            m_error = errno;
        }
    }
}

const CheckedFile& HeldFile::object() const
{
    return isLink(m_entry) ? m_target : m_entry;
}

bool HeldFile::isReachedByLink() const
{
    if (isLink(m_entry)) {
        return true;
    }
    const UniqueFd direct = openDirectoryWithoutLinks(m_directoryPath);
    struct stat held = {};
    struct stat now = {};
    return !direct.isValid() || ::fstat(direct.get(), &now) != 0 || ::fstat(m_directory.get(), &held) != 0 ||
           !isSameInode(held, now);
}

bool HeldFile::remove() const
{
    if (!isStillThere()) {
        return false;
    }
    if (m_entry.kind() == CheckedFile::Kind::Directory) {
        errno = EISDIR;
        return false;
    }
    return ::unlinkat(m_directory.get(), m_name.constData(), 0) == 0;
}

bool HeldFile::rename(const QByteArray& name) const
{
    if (!isStillThere()) {
        return false;
    }
    if (::renameat2(m_directory.get(), m_name.constData(), m_directory.get(), name.constData(),
                    RENAME_NOREPLACE) == 0) {
        return true;
    }
    // A file system that cannot do it in one step.
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    struct stat existing = {};
    if (::fstatat(m_directory.get(), name.constData(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return false;
    }
    return ::renameat(m_directory.get(), m_name.constData(), m_directory.get(), name.constData()) == 0;
}

bool HeldFile::isStillThere() const
{
    if (m_entry.kind() == CheckedFile::Kind::Missing) {
        errno = m_error;
        return false;
    }
    struct stat now = {};
    if (::fstatat(m_directory.get(), m_name.constData(), &now, AT_SYMLINK_NOFOLLOW) != 0) {
        return false;
    }
    if (!isSameInode(now, m_entry.status())) {
        errno = ESTALE;
        return false;
    }
    return true;
}
