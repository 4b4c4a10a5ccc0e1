#pragma once

#include "common/uniquefd.h"

/// Has the process work in other directories for a while, and where it was before at the end.
///
/// A watch is added by a path. One that starts at the working directory leads into a directory that is held
/// as surely as the way by /proc/self/fd, which takes the kernel nearly half as long as the watch itself.
/// All threads share the working directory. Only a relative path in a request goes by it, which is served on
/// the thread that walks, and thus never during a walk. The service's own paths are absolute, and its helper
/// is started in "/".
class Excursion
{
public:
    Excursion() = default;
    Excursion(const Excursion&) = delete;
    Excursion& operator=(const Excursion&) = delete;
    ~Excursion();

    /// False when the process cannot go there, and stays where it is.
    bool enter(const UniqueFd& directory);

private:
    UniqueFd m_origin;
};
