#pragma once

#include <cstdint>

#include <time.h>

/// Nanoseconds of the clock that all programs of a machine share, and that nothing sets back.
inline int64_t nanosecondsNow()
{
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}
