#include "monitor/excursion.h"

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

Excursion::~Excursion()
{
    // In a directory of a user it would keep a medium from being unmounted.
    if (m_origin.isValid() && ::fchdir(m_origin.get()) != 0 && ::chdir("/") != 0) {
        perror("chdir");
    }
}

bool Excursion::enter(const UniqueFd& directory)
{
    if (!m_origin.isValid()) {
        m_origin = UniqueFd(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    return m_origin.isValid() && ::fchdir(directory.get()) == 0;
}
