#include "platform/tvcore/hashliststore.h"

#include "platform/tvcore/packedtexts.h"

#include <QByteArray>
#include <QSet>
#include <QVector>

#include <algorithm>
#include <functional>

namespace
{
/// A chunk is full at this size: some 960 SHA-256 hashes, so that a list of a million takes about a thousand
/// rows, and changing a single hash writes no more than this.
constexpr int fullChunkSize = 64 * 1024;

struct Chunk
{
    qint64 id = 0;
    QStringList hashes;
};

struct PackedChunk
{
    QByteArray hashes;
    int count = 0;
};

QVector<PackedChunk> pack(const QStringList& hashes)
{
    QVector<PackedChunk> chunks;
    for (const QString& hash : hashes) {
        if (chunks.isEmpty() || chunks.constLast().hashes.size() >= fullChunkSize) {
            chunks.append(PackedChunk());
            chunks.last().hashes.reserve(fullChunkSize);
        }
        PackedTexts::append(chunks.last().hashes, hash);
        ++chunks.last().count;
    }
    return chunks;
}

/// Runs a statement whose first column is `hashes` of the table, and calls `row` with each row and what that
/// column holds: nothing when it is NULL.
bool selectChunks(StoreConnection& connection, const QString& sql, const QVariantList& values,
                  const std::function<void(const QSqlQuery&, const QStringList&)>& row)
{
    bool isSound = true;
    const bool isRead = connection.select(sql, values, [&isSound, &row](const QSqlQuery& query) {
        QStringList hashes;
        isSound = PackedTexts::unpack(query.value(0).toByteArray(), hashes) && isSound;
        row(query, hashes);
    });
    // A list with a hole in it would be taken for a complete one.
    return isRead && (isSound || connection.refuse(QStringLiteral("a list of hashes is damaged")));
}

/// Calls `each` with one chunk of the list after the other.
bool selectAll(StoreConnection& connection, int list, const std::function<void(const Chunk&)>& each)
{
    return selectChunks(connection,
                        QStringLiteral("SELECT hashes, id FROM ioc_hash_chunk WHERE list = ? ORDER BY id"),
                        {list}, [&each](const QSqlQuery& row, const QStringList& hashes) {
                            each({row.value(1).toLongLong(), hashes});
                        });
}

bool markAsSet(StoreConnection& connection, int list)
{
    return connection.execute(QStringLiteral("INSERT OR IGNORE INTO ioc_list(list) VALUES(?)"), {list});
}

bool insert(StoreConnection& connection, int list, const QVector<PackedChunk>& chunks)
{
    return std::all_of(chunks.cbegin(), chunks.cend(), [&connection, list](const PackedChunk& chunk) {
        return connection.execute(
            QStringLiteral("INSERT INTO ioc_hash_chunk(list, hash_count, hashes) VALUES(?, ?, ?)"),
            {list, chunk.count, chunk.hashes});
    });
}

/// Makes `hashes` the content of the chunk `id`, which has had more.
bool shrink(StoreConnection& connection, qint64 id, const QStringList& hashes)
{
    if (hashes.isEmpty()) {
        return connection.execute(QStringLiteral("DELETE FROM ioc_hash_chunk WHERE id = ?"), {id});
    }
    QByteArray packed;
    for (const QString& hash : hashes) {
        PackedTexts::append(packed, hash);
    }
    return connection.execute(
        QStringLiteral("UPDATE ioc_hash_chunk SET hash_count = ?, hashes = ? WHERE id = ?"),
        {hashes.size(), packed, id});
}
} // namespace

HashListStore::HashListStore(Store& store) : m_store(store)
{
}

void HashListStore::forget()
{
    m_last = {};
}

bool HashListStore::isList(int list)
{
    return list >= 0 && list < listCount;
}

QStringList HashListStore::hashes(int list)
{
    if (!isList(list)) {
        return {};
    }
    bool wasEverSet = false;
    QStringList stored;
    const bool isRead = m_store.read([list, &wasEverSet, &stored](StoreConnection& connection) {
        wasEverSet = false;
        stored.clear();
        // A list without hashes gives one row.
        return selectChunks(connection,
                            QStringLiteral("SELECT hashes FROM ioc_list LEFT JOIN ioc_hash_chunk USING(list) "
                                           "WHERE ioc_list.list = ? ORDER BY id"),
                            {list}, [&wasEverSet, &stored](const QSqlQuery&, const QStringList& hashes) {
                                wasEverSet = true;
                                stored += hashes;
                            });
    });
    QStringList& last = m_last[static_cast<std::size_t>(list)];
    if (isRead && wasEverSet) {
        last = stored;
    }
    return last;
}

bool HashListStore::setHashes(int list, const QStringList& hashes)
{
    if (!isList(list)) {
        return false;
    }
    // All that can be done before the lock is taken.
    QStringList unique = hashes;
    unique.removeDuplicates();
    const QVector<PackedChunk> chunks = pack(unique);
    const bool isStored = m_store.write(
        [list, &chunks](StoreConnection& connection) {
            return markAsSet(connection, list) &&
                   connection.execute(QStringLiteral("DELETE FROM ioc_hash_chunk WHERE list = ?"), {list}) &&
                   insert(connection, list, chunks);
        },
        Store::Patience::Long);
    if (isStored) {
        m_last[static_cast<std::size_t>(list)] = unique;
    }
    return isStored;
}

int HashListStore::add(int list, const QStringList& hashes)
{
    if (!isList(list)) {
        return -1;
    }
    const QStringList& last = m_last[static_cast<std::size_t>(list)];
    QStringList all;
    int oldCount = 0;
    const bool isStored = m_store.write(
        [list, &hashes, &last, &all, &oldCount](StoreConnection& connection) {
            all.clear();
            QSet<QString> missing(hashes.cbegin(), hashes.cend());
            Chunk lastChunk;
            if (!markAsSet(connection, list) ||
                !selectAll(connection, list, [&last, &all, &missing, &lastChunk](const Chunk& chunk) {
                    for (const QString& hash : chunk.hashes) {
                        missing.remove(hash);
                        // What is in memory already is not kept a second time.
                        const int position = all.size();
                        all.append(position < last.size() && last.at(position) == hash ? last.at(position)
                                                                                       : hash);
                    }
                    lastChunk = chunk;
                })) {
                return false;
            }
            oldCount = all.size();
            for (const QString& hash : hashes) {
                if (missing.remove(hash)) {
                    all.append(hash);
                }
            }
            if (all.size() == oldCount || oldCount == 0) {
                return insert(connection, list, pack(all.mid(oldCount)));
            }
            // The last chunk is filled up first: hashes that come one at a time must not get a row each.
            return shrink(connection, lastChunk.id, {}) &&
                   insert(connection, list, pack(all.mid(oldCount - lastChunk.hashes.size())));
        },
        Store::Patience::Long);
    if (!isStored) {
        return -1;
    }
    m_last[static_cast<std::size_t>(list)] = all;
    return all.size() - oldCount;
}

int HashListStore::remove(int list, const QStringList& hashes)
{
    if (!isList(list)) {
        return -1;
    }
    const QSet<QString> unwanted(hashes.cbegin(), hashes.cend());
    QStringList left;
    int removed = 0;
    const bool isStored = m_store.write(
        [list, &unwanted, &left, &removed](StoreConnection& connection) {
            QVector<Chunk> chunks;
            if (!markAsSet(connection, list) ||
                !selectAll(connection, list, [&chunks](const Chunk& chunk) { chunks.append(chunk); })) {
                return false;
            }
            left.clear();
            removed = 0;
            for (Chunk& chunk : chunks) {
                const int oldCount = chunk.hashes.size();
                chunk.hashes.erase(
                    std::remove_if(chunk.hashes.begin(), chunk.hashes.end(),
                                   [&unwanted](const QString& hash) { return unwanted.contains(hash); }),
                    chunk.hashes.end());
                if (chunk.hashes.size() != oldCount && !shrink(connection, chunk.id, chunk.hashes)) {
                    return false;
                }
                removed += oldCount - chunk.hashes.size();
                left += chunk.hashes;
            }
            return true;
        },
        Store::Patience::Long);
    if (!isStored) {
        return -1;
    }
    m_last[static_cast<std::size_t>(list)] = left;
    return removed;
}

int HashListStore::count(int list)
{
    int number = -1;
    const bool isRead = m_store.read([list, &number](StoreConnection& connection) {
        return connection.select(
            QStringLiteral("SELECT total(hash_count) FROM ioc_hash_chunk WHERE list = ?"), {list},
            [&number](const QSqlQuery& row) { number = row.value(0).toInt(); });
    });
    return isRead ? number : -1;
}

bool HashListStore::find(int list, QStringList& hashes, int from, int limit)
{
    const qint64 first = std::max(from, 0);
    const qint64 end = first + std::max(limit, 0);
    const bool isRead = m_store.read([list, first, end, &hashes](StoreConnection& connection) {
        hashes.clear();
        // One statement, so that positions and hashes are of the same state. Only the chunks that are asked
        // for are read.
        return selectChunks(
            connection,
            QStringLiteral("SELECT hashes, start FROM ioc_hash_chunk JOIN "
                           "(SELECT id, hash_count, sum(hash_count) OVER (ORDER BY id) - hash_count AS start "
                           "FROM ioc_hash_chunk WHERE list = ?) AS position USING(id) "
                           "WHERE start < ? AND start + position.hash_count > ? ORDER BY id"),
            {list, end, first}, [first, end, &hashes](const QSqlQuery& row, const QStringList& chunk) {
                const qint64 start = row.value(1).toLongLong();
                const qint64 skipped = std::max(first - start, 0LL);
                hashes += chunk.mid(static_cast<int>(skipped), static_cast<int>(end - start - skipped));
            });
    });
    if (!isRead) {
        hashes.clear();
    }
    return isRead;
}
