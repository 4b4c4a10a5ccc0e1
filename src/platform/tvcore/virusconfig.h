#pragma once

#include "platform/tvcore/tvcoreexport.h"
#include "platform/tvcore/virusreport.h"

#include <QDateTime>
#include <QVector>
#include <QtGlobal>

#include <limits>

/// Access to the detection records. Thread and opening: see TvCore.
///
/// A period is [from, to); an invalid time leaves that end open. A record without a valid time lies
/// only in the period that is open at both ends.
class TVCORE_EXPORT VirusConfig
{
public:
    VirusConfig();

    /// Stores a copy of `report`. True when it and all before it are on disk. False when it cannot be stored
    /// now: it is then kept in memory, with up to 65535 others and 32 MB of names, and stored in its turn as
    /// soon as the store can be written; one that finds no room is lost, which is said in the log.
    bool addVirusReport(const VirusReport& report);

    /// Tries once more to store what is kept in memory; true when nothing is left. For a process that ends
    /// without its application object; any thread, as long as no other uses the records.
    bool storeKeptReports();

    /// Fills `reports` with up to `limit` records of the period whose number is above `afterId`, in the order
    /// in which they were stored, which lets a long list be read in pieces. False, with `reports` empty,
    /// when the store cannot be read.
    bool getVirusReports(const QDateTime& from, const QDateTime& to, QVector<VirusReport>& reports,
                         qint64 afterId = 0, int limit = 1000) const;

    /// The same from the other end: those whose number is below `beforeId`, the one stored last first.
    bool getLastVirusReports(const QDateTime& from, const QDateTime& to, QVector<VirusReport>& reports,
                             qint64 beforeId = std::numeric_limits<qint64>::max(), int limit = 1000) const;

    /// How many records the period has; -1 when the store cannot be read.
    qint64 getVirusReportCount(const QDateTime& from, const QDateTime& to) const;

    /// Removes the records older than `before` and returns how many there were; -1 when the store cannot be
    /// written or `before` is invalid.
    qint64 removeVirusReports(const QDateTime& before);
};
