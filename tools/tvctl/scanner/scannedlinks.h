#pragma once

#include <QHash>
#include <QPair>
#include <QString>

#include <optional>

#include <sys/stat.h>

/// What came of the files that have several names, so that each is scanned once. Forgets all of it when there
/// are too many of them. For one thread.
class ScannedLinks
{
public:
    static constexpr int most = 200000;

    /// What was found in the file of this status when it was scanned under another name, empty for nothing.
    /// Nothing when that is not known, or no longer true.
    std::optional<QString> find(const struct stat& status) const;

    /// `status` is from before the scan. Does nothing for a file that has one name, and for one that changed
    /// so lately that the next change might have the same time.
    void add(const struct stat& status, const QString& virusName);

private:
    struct Entry
    {
        qint64 changedSec = 0;
        qint64 changedNsec = 0;
        QString virusName;
    };

    QHash<QPair<quint64, quint64>, Entry> m_entries;
};
