#pragma once

#include "platform/tvcore/tvcoreexport.h"

/// The stored settings of the scan for indicators of compromise, a plain value. A new one holds the defaults
/// of an empty store: off, matching files are allowed.
class TVCORE_EXPORT IOCScanSettings
{
public:
    IOCScanSettings();

    /// Whether files are scanned for indicators at all.
    bool getEnable() const;
    void setEnable(bool enable);
    /// What is done to a matching file: 0 allows it, 1 renames it, 2 deletes it. Kept unchanged, whatever it
    /// is.
    int getAction() const;
    void setAction(int action);

private:
    bool m_enable = false;
    int m_action = 0;
};
