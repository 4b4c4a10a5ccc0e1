#pragma once

#include "platform/tvcore/scansetting.h"
#include "platform/tvcore/tvcoreexport.h"

#include <QSet>
#include <QString>

#include <functional>

/// Access to the stored scan settings and exclusion lists. Thread and opening: see TvCore.
///
/// Each reading operation looks into the store anew. When that fails it answers what it last read (or
/// wrote) in this process, and the default only when there never was such a value.
class TVCORE_EXPORT ScanConfig
{
public:
    ScanConfig();

    ScanSetting getScanSetting() const;
    /// True when stored for good; false leaves the store as it was.
    bool setScanSetting(const ScanSetting& setting);
    /// Stores what `change` makes of the stored setting; nobody else writes in between, so that no other's
    /// change is lost. `change` may be called again, on a fresh value. As `setScanSetting`.
    bool changeScanSetting(const std::function<void(ScanSetting&)>& change);

    /// Exclusion list number `list`: 0 files, 1 directories, 2 the third list. Full paths as the file system
    /// has them. Empty by default, and for any other number.
    QSet<QString> getExcludeList(int list);
    /// Replaces the whole list. True when stored for good; false leaves the store as it was. A number other
    /// than 0, 1 and 2 is refused.
    bool setExcludeList(int list, const QSet<QString>& paths);
    /// Stores what `change` makes of the list. As `changeScanSetting` and `setExcludeList`.
    bool changeExcludeList(int list, const std::function<void(QSet<QString>&)>& change);
};
