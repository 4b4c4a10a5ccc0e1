#include "platform/tvcore/directorylock.h"

#include "common/filename.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>

DirectoryLock::DirectoryLock(const QString& directory)
{
    const QByteArray name = FileName::toBytes(directory);
    m_directory.reset(::open(name.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    int error = m_directory.isValid() ? 0 : errno;
    if (error == 0) {
        error = ::flock(m_directory.get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
    }
    if (error != 0) {
        m_error = StoreError::ofErrno(directory, error);
    }
    if (error == EWOULDBLOCK) {
        m_error.fault = StoreError::Busy;
    }
}
