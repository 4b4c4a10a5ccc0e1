#include "tvctl/health/testfile.h"

#include "common/filename.h"
#include "common/opendirectory.h"
#include "tvctl/health/testpattern.h"

#include <QRandomGenerator>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;

QByteArray freshName()
{
    return "tvctl-selftest-" + QByteArray::number(QRandomGenerator::system()->generate64(), 16) + ".txt";
}
} // namespace

TestFile::TestFile(const QString& directory)
    : m_name(freshName()),
      m_directory(openDirectoryWithoutLinks(FileName::toBytes(directory)))
{
    if (!m_directory.isValid()) {
        m_error = errno;
        return;
    }
    m_file.reset(::openat(m_directory.get(), m_name.constData(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownerOnly));
    if (!m_file.isValid() || !write()) {
        m_error = errno;
    }
}

TestFile::~TestFile()
{
    if (m_file.isValid() && !isGone()) {
        ::unlinkat(m_directory.get(), m_name.constData(), 0);
    }
}

QString TestFile::name() const
{
    return FileName::toText(m_name);
}

void TestFile::rewrite()
{
    write();
}

bool TestFile::isGone() const
{
    struct stat own = {};
    struct stat present = {};
    return ::fstat(m_file.get(), &own) != 0 ||
           ::fstatat(m_directory.get(), m_name.constData(), &present, AT_SYMLINK_NOFOLLOW) != 0 ||
           own.st_ino != present.st_ino || own.st_dev != present.st_dev;
}

bool TestFile::write()
{
    const QByteArray pattern = testPattern();
    const ssize_t written = TEMP_FAILURE_RETRY(
        ::pwrite(m_file.get(), pattern.constData(), static_cast<size_t>(pattern.size()), 0));
    if (written >= 0 && written < pattern.size()) {
        errno = ENOSPC;
    }
    return written == pattern.size();
}
