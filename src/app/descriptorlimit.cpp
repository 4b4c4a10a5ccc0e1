#include "app/descriptorlimit.h"

#include <sys/resource.h>

void raiseDescriptorLimit()
{
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        // A failure leaves it as it was, which is enough for most.
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}
