#include "socket/descriptorreserve.h"

#include <algorithm>
#include <cerrno>

#include <sys/eventfd.h>
#include <sys/resource.h>

namespace
{
/// The lowest number of the reserve. Read each time: root may change the limit of a running process.
rlim_t firstReserved()
{
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur - std::min<rlim_t>(descriptorReserve, limit.rlim_cur / 2);
}
} // namespace

UniqueFd outsideReserve(UniqueFd descriptor)
{
    // The kernel gives the lowest free number: all below this one are taken.
    if (descriptor.isValid() && static_cast<rlim_t>(descriptor.get()) >= firstReserved()) {
        descriptor.reset();
        errno = EMFILE;
    }
    return descriptor;
}

bool isRoomOutsideReserve()
{
    return outsideReserve(UniqueFd(::eventfd(0, EFD_CLOEXEC))).isValid();
}
