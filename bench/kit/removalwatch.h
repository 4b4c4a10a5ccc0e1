#pragma once

#include "common/uniquefd.h"

#include <string>

/// Sleeps until files are gone from a directory, removed or moved away.
///
/// Blocks in the kernel: on a machine with two cores a program that looks again and again would take one of
/// them from whoever removes the files.
class RemovalWatch
{
public:
    explicit RemovalWatch(const std::string& directory);

    /// Returns the time at which the last of `count` files whose names end in `suffix` was seen to be gone,
    /// and -1 when nothing was removed for `timeoutSeconds`. Each removal counts once for all calls.
    int64_t waitFor(const std::string& suffix, int64_t count, int timeoutSeconds);

private:
    UniqueFd m_inotify;
};
