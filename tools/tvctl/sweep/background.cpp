#include "tvctl/sweep/background.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{
constexpr int leastPriority = 19;
// The C library knows nothing of the priorities of disk access.
constexpr int thisProcess = 1;
constexpr int idleClass = 3;
constexpr int classShift = 13;
} // namespace

void goToBackground()
{
    // Batch and not idle: on a machine that is always busy it would never end. Where it is idle already, that
    // may be refused, and is as good.
    const sched_param parameters = {};
    ::sched_setscheduler(0, SCHED_BATCH, &parameters);
    ::setpriority(PRIO_PROCESS, 0, leastPriority);
    ::syscall(SYS_ioprio_set, thisProcess, 0, idleClass << classShift);
}
