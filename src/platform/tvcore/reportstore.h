#pragma once

#include "platform/tvcore/store.h"
#include "platform/tvcore/virusreport.h"

#include <QDateTime>
#include <QTimer>
#include <QVector>

#include <cstddef>
#include <deque>
#include <memory>

/// The file of detection records, and the records that are still to be stored.
class ReportStore
{
public:
    /// What is kept in memory while the file cannot be written, in records and in characters of names: as
    /// many as are detected in a minute of a lock, in less than 100 MB. A flood of detections must not take
    /// the memory of the machine.
    static constexpr std::size_t maxPending = 65536;
    static constexpr std::size_t maxPendingText = 16UL * 1024 * 1024;

    ReportStore();

    /// Empty stands for the installation's own; see Store::setDirectory. Records that cannot be stored in
    /// the old place before are lost.
    void setDirectory(const QString& directory);
    /// Tries once more to store what is pending.
    void close();

    /// True when it, and all before it, are on disk.
    bool add(const VirusReport& report);
    /// See VirusConfig::storeKeptReports.
    bool storeKept();
    /// For these see VirusConfig.
    bool find(const QDateTime& from, const QDateTime& to, QVector<VirusReport>& reports, qint64 afterId,
              int limit);
    bool findLast(const QDateTime& from, const QDateTime& to, QVector<VirusReport>& reports, qint64 beforeId,
                  int limit);
    qint64 count(const QDateTime& from, const QDateTime& to);
    qint64 removeBefore(const QDateTime& before);

private:
    /// `order` is the condition on the number, with one value, and the order.
    bool select(const QDateTime& from, const QDateTime& to, const QString& order, qint64 id, int limit,
                QVector<VirusReport>& reports);
    bool isFull() const;
    /// True when nothing is pending any more. What is left is tried again later.
    bool storePending();
    /// Stores the oldest of what is pending, a limited number.
    bool writePending();
    void tryAgainAfter(int delayMs);
    static bool insert(StoreConnection& connection, const VirusReport& report);
    static VirusReport fromRow(const StoreRow& row);

    Store m_store;
    /// Oldest first: of a flood, what came first tells where it came from.
    std::deque<VirusReport> m_pending;
    /// Characters of names in it.
    std::size_t m_pendingText = 0;
    bool m_isFullNoted = false;
    /// Exists only while something is pending, and never after the application object.
    std::unique_ptr<QTimer> m_retry;
};
