#pragma once

#include <cstdint>

/// How much of this process is in memory, in KiB.
int64_t residentKibibytes();
