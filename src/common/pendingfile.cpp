#include "common/pendingfile.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>

PendingFile::PendingFile(const UniqueFd& directory, const QByteArray& name, const QByteArray& passingName)
    : m_directory(directory),
      m_name(name),
      m_passingName(passingName)
{
}

PendingFile::~PendingFile()
{
    if (m_hasPassingName) {
        remove(m_passingName);
    }
}

bool PendingFile::create(mode_t mode)
{
    m_file.reset(::openat(m_directory.get(), m_passingName.constData(),
                          O_CREAT | O_EXCL | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, mode));
    m_hasPassingName = m_file.isValid();
    return m_hasPassingName;
}

bool PendingFile::publish()
{
    if (::renameat2(m_directory.get(), m_passingName.constData(), m_directory.get(), m_name.constData(),
                    RENAME_NOREPLACE) == 0) {
        m_hasPassingName = false;
        return true;
    }
    // Network file systems know no such rename, but links, which replace nothing either.
    return errno == EINVAL && ::linkat(m_directory.get(), m_passingName.constData(), m_directory.get(),
                                       m_name.constData(), 0) == 0;
}

void PendingFile::withdraw()
{
    remove(m_name);
}

void PendingFile::remove(const QByteArray& name)
{
    const int error = errno;
    ::unlinkat(m_directory.get(), name.constData(), 0);
    errno = error;
}
