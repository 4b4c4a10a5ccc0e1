#pragma once

#include "tvctl/hashlists/digestset.h"
#include "tvctl/hashlists/hashlistsink.h"

#include <QStringList>
#include <QVector>

#include <array>
#include <functional>

/// Gathers what the lists of one import hold, each hash once, and hands it on in large pieces.
///
/// Needs memory for one piece of each type and for the hashes that it remembers, some 60 bytes each: at most
/// 150 MB for lists of any length. Behind `mostRemembered` different hashes a repeated one counts as
/// accepted again; the store, which holds each hash once, refuses it then.
class HashCollector : public HashListSink
{
public:
    static constexpr int defaultPiece = 50000;
    static constexpr std::size_t defaultMemory = 2000000;
    /// More than anybody reads; the count goes on.
    static constexpr int mostRejections = 1000;

    /// Gets the hashes in the order of the list. False says that they cannot be stored, and no more are
    /// handed on.
    using Flush = std::function<bool(IOCScanConfig::HASH_TYPE type, const QStringList& hashes)>;

    struct Rejection
    {
        qint64 line = 0;
        QString reason;
    };

    /// What one list held.
    struct Counts
    {
        /// Handed on, or kept for the next piece, by type.
        std::array<qint64, 3> accepted = {};
        /// In this list or an earlier one of the same import before.
        qint64 duplicates = 0;
        /// Hashes of content that sound files have too.
        qint64 harmless = 0;
        qint64 rejected = 0;
    };

    explicit HashCollector(Flush flush, int piece = defaultPiece, std::size_t mostRemembered = defaultMemory);

    void accept(const HashIndicator& indicator) override;
    void reject(qint64 line, const QString& reason) override;

    /// Hands on what is left. False when that failed, or any time before.
    bool finish();
    bool hasFailed() const
    {
        return m_hasFailed;
    }

    /// Begins to count for another list. What is remembered stays.
    void beginList();
    const Counts& counts() const
    {
        return m_counts;
    }
    /// The first of the rejected and of the harmless ones, in the order of the list.
    const QVector<Rejection>& rejections() const
    {
        return m_rejections;
    }

private:
    void note(qint64 line, const QString& reason);
    void handOn(IOCScanConfig::HASH_TYPE type);

    Flush m_flush;
    const int m_piece;
    DigestSet m_remembered;
    std::array<QStringList, 3> m_kept;
    Counts m_counts;
    QVector<Rejection> m_rejections;
    bool m_hasFailed = false;
};
