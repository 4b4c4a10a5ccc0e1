#pragma once

#include "tvctl/detections/iocreportrecord.h"

#include <QDateTime>
#include <QString>

#include <functional>

/// Reads the daily reports of files that were on a list of known-bad hashes.
namespace IocReports
{
struct Outcome
{
    /// Pieces that are no record: cut short, or put in by others.
    qint64 unreadableLines = 0;
    /// Reports that could not be read at all.
    int unreadableFiles = 0;
};

/// Calls `take` for each record of this time or later in the reports of `directory`, day by day; an invalid
/// time takes all. A directory that is missing holds none. Links are not followed.
Outcome read(const QString& directory, const QDateTime& since,
             const std::function<void(const IocReportRecord&)>& take);
} // namespace IocReports
