#pragma once

#include <array>
#include <optional>

#include <sys/types.h>

/// Which file systems only this machine's kernel has written to: those that hold / and /home, as they were at
/// construction.
///
/// Any other may come from somebody who wrote it byte by byte, on a stick for example, so that a directory
/// says that a directory in it is a file, or has one directory under many names. What it says is to be
/// checked, and a walk over it to be bounded.
class OwnDevices
{
public:
    OwnDevices();

    bool contains(dev_t device) const;
    /// Whether what the descriptor `file` stands for lies on one of them.
    bool hold(int file) const;

private:
    std::array<std::optional<dev_t>, 2> m_devices;
};
