#include "platform/tvcore/filestamp.h"

#include "common/filename.h"

#include <cerrno>

namespace
{
bool isEqual(const struct timespec& a, const struct timespec& b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}
} // namespace

FileStamp FileStamp::of(const QString& path)
{
    FileStamp stamp;
    const QByteArray name = FileName::toBytes(path);
    if (::lstat(name.constData(), &stamp.m_stat) != 0) {
        stamp.m_error = errno;
        stamp.m_stat = {};
    }
    return stamp;
}

bool FileStamp::isMissing() const
{
    return m_error == ENOENT || m_error == ENOTDIR;
}

bool FileStamp::isRegularFile() const
{
    return m_error == 0 && S_ISREG(m_stat.st_mode);
}

bool FileStamp::isSameFile(const FileStamp& other) const
{
    return m_error == 0 && other.m_error == 0 && m_stat.st_dev == other.m_stat.st_dev &&
           m_stat.st_ino == other.m_stat.st_ino;
}

bool FileStamp::isUnchanged(const FileStamp& other) const
{
    return m_error == other.m_error && m_stat.st_dev == other.m_stat.st_dev &&
           m_stat.st_ino == other.m_stat.st_ino && m_stat.st_size == other.m_stat.st_size &&
           isEqual(m_stat.st_mtim, other.m_stat.st_mtim) && isEqual(m_stat.st_ctim, other.m_stat.st_ctim);
}
