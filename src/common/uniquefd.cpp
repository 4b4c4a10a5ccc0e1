#include "common/uniquefd.h"

#include <cerrno>

void UniqueFd::reset(int fd)
{
    if (m_fd >= 0) {
        // Owners often go out of scope between a failure and the line that logs it.
        const int error = errno;
        ::close(m_fd);
        errno = error;
    }
    m_fd = fd;
}
