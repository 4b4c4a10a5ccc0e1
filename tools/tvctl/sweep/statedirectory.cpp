#include "tvctl/sweep/statedirectory.h"

#include <cstdio>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr mode_t privateMode = 0600;
/// Far more than the directories of any machine need.
constexpr qint64 mostBytes = qint64(1) << 30;
} // namespace

StateDirectory::StateDirectory(const QByteArray& path)
    : m_directory(::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
}

bool StateDirectory::lock(const QByteArray& name)
{
    m_lock = open(name, O_RDWR | O_CREAT);
    return m_lock.isValid() && ::flock(m_lock.get(), LOCK_EX | LOCK_NB) == 0;
}

QByteArray StateDirectory::read(const QByteArray& name) const
{
    const UniqueFd file = open(name, O_RDONLY | O_NONBLOCK);
    struct stat status = {};
    if (!file.isValid() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size > mostBytes) {
        return {};
    }
    QByteArray content(static_cast<int>(status.st_size), Qt::Uninitialized);
    int done = 0;
    while (done < content.size()) {
        const ssize_t got = TEMP_FAILURE_RETRY(
            ::read(file.get(), content.data() + done, static_cast<size_t>(content.size() - done)));
        if (got <= 0) {
            return {};
        }
        done += static_cast<int>(got);
    }
    return content;
}

bool StateDirectory::replace(const QByteArray& name, const QByteArray& content) const
{
    const QByteArray passing = name + ".new";
    // One that a sweep left behind when it was killed; under the lock nobody else writes it.
    remove(passing);
    const UniqueFd file = open(passing, O_WRONLY | O_CREAT | O_EXCL);
    return file.isValid() && write(file, content) && ::fsync(file.get()) == 0 &&
           ::renameat(m_directory.get(), passing.constData(), m_directory.get(), name.constData()) == 0 &&
           ::fsync(m_directory.get()) == 0;
}

UniqueFd StateDirectory::openForAppending(const QByteArray& name, qint64 size) const
{
    UniqueFd file = open(name, O_WRONLY | O_CREAT | O_APPEND);
    if (file.isValid() && ::ftruncate(file.get(), size) != 0) {
        return UniqueFd();
    }
    return file;
}

UniqueFd StateDirectory::openForRewriting(const QByteArray& name) const
{
    return open(name, O_WRONLY | O_CREAT);
}

void StateDirectory::remove(const QByteArray& name) const
{
    ::unlinkat(m_directory.get(), name.constData(), 0);
}

bool StateDirectory::write(const UniqueFd& file, const QByteArray& bytes)
{
    int done = 0;
    while (done < bytes.size()) {
        const ssize_t written = TEMP_FAILURE_RETRY(
            ::write(file.get(), bytes.constData() + done, static_cast<size_t>(bytes.size() - done)));
        if (written < 0) {
            return false;
        }
        done += static_cast<int>(written);
    }
    return true;
}

UniqueFd StateDirectory::open(const QByteArray& name, int flags) const
{
    return UniqueFd(
        ::openat(m_directory.get(), name.constData(), flags | O_NOFOLLOW | O_CLOEXEC, privateMode));
}
