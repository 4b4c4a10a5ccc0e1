#pragma once

#include "tvctl/quarantine/quarantineentry.h"

#include <QByteArray>
#include <QHash>
#include <QSet>
#include <QString>
#include <QVector>

class VirusReport;

/// Finds out where quarantine copies came from.
///
/// A copy's name holds the MD5 of the original's path, so a path from a detection record or from the user is
/// believed only when it has that MD5. The record of the very detection is the first that was stored after
/// the copy was begun, within `tolerance`. Paths made to have the same MD5 do not deceive: without such a
/// record, and with more than one path to choose from, the path stays unknown.
///
/// `readRecords` belongs to the thread of the QCoreApplication; the rest is a plain value.
class QuarantineOrigins
{
public:
    /// Seconds that may pass between the beginning of a copy and its record: large files on slow disks.
    static constexpr qint64 tolerance = 15 * 60;

    /// Only what may concern these copies is kept.
    explicit QuarantineOrigins(const QVector<QuarantineEntry>& entries);

    /// Reads all detection records, once and in pieces of `pieceSize`. False when the store cannot be read.
    bool readRecords(int pieceSize = 1000);
    void addRecord(const VirusReport& report);

    /// A path that may be the origin of a copy.
    void addCandidate(const QByteArray& path);

    /// Fills in what is known about each.
    void identify(QVector<QuarantineEntry>& entries);
    void identify(QuarantineEntry& entry);

private:
    struct Record
    {
        /// Milliseconds since 1970.
        qint64 time;
        qint64 id;
        QByteArray path;
        QString virusName;
    };
    struct Origin
    {
        QByteArray recordedPath;
        /// Records name another path with this MD5, which somebody must have made on purpose.
        bool isAmbiguous = false;
        QByteArray candidate;
        /// Those of which a copy may have been made.
        QVector<Record> records;
        bool isSorted = false;
    };

    static const Record* recordAfter(const Origin& origin, qint64 moment);

    /// By MD5 of the path.
    QHash<QByteArray, Origin> m_origins;
    /// So that the same text is kept once.
    QSet<QByteArray> m_paths;
    QSet<QString> m_virusNames;
};
