#include "tvctl/detections/newfile.h"

#include "common/filename.h"
#include "common/sameinode.h"
#include "tvctl/console/toolerror.h"

#include <QRandomGenerator>

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr mode_t newFileMode = 0600;
constexpr int attempts = 100;
} // namespace

NewFile::NewFile(const QString& path) : m_path(path)
{
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    const QString directory = slash <= 0 ? QStringLiteral("/") : path.left(slash);
    m_name = FileName::toBytes(path.mid(slash + 1));
    m_directory.reset(::open(FileName::toBytes(directory).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!m_directory.isValid()) {
        fail(errno);
    }
    requireRegularOrNothing();
    int error = EEXIST;
    for (int attempt = 0; attempt < attempts && error == EEXIST; ++attempt) {
        // The file monitor leaves names with this ending alone; it would scan the file at each write
        // otherwise.
        m_passingName =
            ".tvctl-" + QByteArray::number(QRandomGenerator::system()->generate64(), 16) + ".part";
        m_file.reset(::openat(m_directory.get(), m_passingName.constData(),
                              O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, newFileMode));
        error = m_file.isValid() ? 0 : errno;
    }
    if (error != 0) {
        fail(error);
    }
    m_isPassing = true;
}

NewFile::~NewFile()
{
    if (m_isPassing) {
        ::unlinkat(m_directory.get(), m_passingName.constData(), 0);
    }
}

void NewFile::write(const QByteArray& bytes)
{
    int written = 0;
    while (written < bytes.size()) {
        const ssize_t count =
            ::write(m_file.get(), bytes.constData() + written, static_cast<size_t>(bytes.size() - written));
        if (count >= 0) {
            written += static_cast<int>(count);
        } else if (errno != EINTR) {
            fail(errno);
        }
    }
}

void NewFile::publish()
{
    requireRegularOrNothing();
    if (::fsync(m_file.get()) != 0 || ::renameat(m_directory.get(), m_passingName.constData(),
                                                 m_directory.get(), m_name.constData()) != 0) {
        fail(errno);
    }
    m_isPassing = false;
    // Whoever else may write there could have put another file under the passing name, to be believed later.
    if (!isNamed(m_file.get(), m_directory, m_name)) {
        throw ToolError(QStringLiteral("%1 was replaced by somebody the moment that it appeared; name a file "
                                       "in a directory that only you may write to")
                            .arg(m_path));
    }
}

void NewFile::requireRegularOrNothing() const
{
    struct stat status = {};
    if (::fstatat(m_directory.get(), m_name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        if (!S_ISREG(status.st_mode)) {
            throw ToolError(QStringLiteral("%1 is not a regular file; name another one").arg(m_path));
        }
    } else if (errno != ENOENT) {
        fail(errno);
    }
}

void NewFile::fail(int error) const
{
    throw ToolError(
        QStringLiteral("cannot write %1: %2; name another file").arg(m_path, qt_error_string(error)));
}
