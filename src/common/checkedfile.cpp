#include "common/checkedfile.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>

namespace
{
CheckedFile::Kind kindOf(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFREG:
        return CheckedFile::Kind::Regular;
    case S_IFDIR:
        return CheckedFile::Kind::Directory;
    case S_IFIFO:
    case S_IFCHR:
    case S_IFBLK:
        return CheckedFile::Kind::Special;
    default:
        return CheckedFile::Kind::Other;
    }
}
} // namespace

CheckedFile::CheckedFile(const QByteArray& path)
    : CheckedFile(UniqueFd(::open(path.constData(), O_PATH | O_CLOEXEC)))
{
}

CheckedFile::CheckedFile(const UniqueFd& directory, const QByteArray& name)
    : CheckedFile(UniqueFd(::openat(directory.get(), name.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC)))
{
}

CheckedFile::CheckedFile(UniqueFd handle) : m_handle(std::move(handle))
{
    if (m_handle.isValid() && ::fstat(m_handle.get(), &m_status) == 0) {
        m_kind = kindOf(m_status.st_mode);
    }
}

QByteArray CheckedFile::path() const
{
    return "/proc/self/fd/" + QByteArray::number(m_handle.get());
}

UniqueFd CheckedFile::openForReading() const
{
    if (m_kind == Kind::Missing || m_kind == Kind::Special) {
        errno = m_kind == Kind::Missing ? ENOENT : EINVAL;
        return UniqueFd();
    }
    return UniqueFd(::open(path().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}
