#pragma once

#include "platform/tvcore/tvcoreexport.h"

/// Access to the real-time protection switch. Thread and opening: see TvCore.
class TVCORE_EXPORT ProtectionConfig
{
public:
    ProtectionConfig();

    /// The switch as it is in the store now; on by default. Asked on every file event: takes a few
    /// microseconds. When the store cannot be read, what was last read (or written) in this process.
    bool isOnlineProtectionEnabled() const;
    /// True when stored for good; false leaves the store as it was.
    bool setOnlineProtectionEnabled(bool enabled);
};
