#include "platform/tvcore/hashliststore.h"

#include "platform/tvcore/packedtexts.h"

#include <QByteArray>
#include <QHash>
#include <QVector>

#include <algorithm>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace
{
struct Placement
{
    std::size_t operator()(std::string_view item) const
    {
        return qHashBits(item.data(), item.size(), static_cast<uint>(qGlobalQHashSeed()));
    }
};

using PackedSet = std::unordered_set<std::string_view, Placement>;

/// Of views into `chunks`.
PackedSet setOf(const QVector<PackedChunk>& chunks)
{
    PackedSet items;
    PackedChunks::forEach(chunks, [&items](std::string_view item) { items.insert(item); });
    return items;
}

bool refuseDamaged(StoreConnection& connection)
{
    // A list with a hole in it would be taken for a complete one.
    return connection.refuse(QStringLiteral("a list of hashes is damaged"));
}

/// Runs a statement whose first column is `hashes` of the table, and calls `row` with each row and what that
/// column holds: nothing when it is NULL.
bool selectChunks(StoreConnection& connection, const QString& sql, const QVariantList& values,
                  const std::function<void(const StoreRow&, const QStringList&)>& row)
{
    bool isSound = true;
    const bool isRead = connection.select(sql, values, [&isSound, &row](const StoreRow& query) {
        QStringList hashes;
        isSound = PackedTexts::unpack(query.bytes(0), hashes) && isSound;
        row(query, hashes);
    });
    return isRead && (isSound || refuseDamaged(connection));
}

/// Calls `each` with the packed form of one hash of the list after the other, and `end` after those of a
/// chunk.
bool searchList(StoreConnection& connection, int list, const std::function<void(std::string_view)>& each,
                const std::function<void(qint64 id, const QByteArray& hashes)>& end)
{
    bool isSound = true;
    // The index would bring the chunks in another order: all of them would be put into a file to sort them.
    const bool isRead = connection.select(
        QStringLiteral("SELECT hashes, id FROM ioc_hash_chunk NOT INDEXED WHERE list = ? ORDER BY id"),
        {list}, [&isSound, &each, &end](const StoreRow& row) {
            const QByteArray hashes = row.bytes(0);
            isSound = PackedTexts::split(hashes, each) && isSound;
            end(row.integer(1), hashes);
        });
    return isRead && (isSound || refuseDamaged(connection));
}

/// The whole list. `wasEverSet` may be null.
bool selectList(StoreConnection& connection, int list, QVector<PackedChunk>& stored,
                bool* wasEverSet = nullptr)
{
    bool isSet = false;
    bool isSound = true;
    stored.clear();
    // A list without hashes gives one row. For the order see above.
    const bool isRead = connection.select(
        QStringLiteral("SELECT hashes FROM ioc_list LEFT JOIN ioc_hash_chunk NOT INDEXED USING(list) "
                       "WHERE ioc_list.list = ? ORDER BY id"),
        {list}, [&isSet, &isSound, &stored](const StoreRow& row) {
            isSet = true;
            PackedChunk chunk = {row.bytes(0)};
            isSound =
                PackedTexts::split(chunk.hashes, [&chunk](std::string_view) { ++chunk.count; }) && isSound;
            stored.append(chunk);
        });
    if (wasEverSet != nullptr) {
        *wasEverSet = isSet;
    }
    return isRead && (isSound || refuseDamaged(connection));
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

/// Makes `left` the content of the chunk `id`, which has had more.
bool shrink(StoreConnection& connection, qint64 id, const PackedChunk& left)
{
    if (left.count == 0) {
        return connection.execute(QStringLiteral("DELETE FROM ioc_hash_chunk WHERE id = ?"), {id});
    }
    return connection.execute(
        QStringLiteral("UPDATE ioc_hash_chunk SET hash_count = ?, hashes = ? WHERE id = ?"),
        {left.count, left.hashes, id});
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

HashListStore::Last& HashListStore::last(int list)
{
    return m_last[static_cast<std::size_t>(list)];
}

QVector<PackedChunk> HashListStore::read(int list)
{
    if (!isList(list)) {
        return {};
    }
    bool wasEverSet = false;
    QVector<PackedChunk> stored;
    const bool isRead = m_store.read([list, &wasEverSet, &stored](StoreConnection& connection) {
        return selectList(connection, list, stored, &wasEverSet);
    });
    if (isRead && wasEverSet) {
        last(list) = stored;
    }
    return last(list).value_or(QVector<PackedChunk>());
}

QStringList HashListStore::hashes(int list)
{
    return PackedChunks::unpack(read(list));
}

HashIndex HashListStore::index(int list)
{
    return HashIndex(read(list));
}

bool HashListStore::setHashes(int list, const QStringList& hashes)
{
    if (!isList(list)) {
        return false;
    }
    // All that can be done before the lock is taken.
    QStringList unique = hashes;
    unique.removeDuplicates();
    const QVector<PackedChunk> chunks = PackedChunks::pack(unique);
    const bool isStored = m_store.write(
        [list, &chunks](StoreConnection& connection) {
            return markAsSet(connection, list) &&
                   connection.execute(QStringLiteral("DELETE FROM ioc_hash_chunk WHERE list = ?"), {list}) &&
                   insert(connection, list, chunks);
        },
        Store::Patience::Long);
    if (isStored) {
        last(list) = chunks;
    }
    return isStored;
}

int HashListStore::change(int list, const std::function<int(StoreConnection&)>& work)
{
    int changed = -1;
    QVector<PackedChunk> stored;
    const bool isKept = last(list).has_value();
    const bool isStored = m_store.write(
        [list, isKept, &work, &changed, &stored](StoreConnection& connection) {
            changed = markAsSet(connection, list) ? work(connection) : -1;
            return changed >= 0 && (!isKept || selectList(connection, list, stored));
        },
        Store::Patience::Long);
    if (isStored && isKept) {
        last(list) = stored;
    }
    return isStored ? changed : -1;
}

int HashListStore::add(int list, const QStringList& hashes)
{
    if (!isList(list)) {
        return -1;
    }
    const QVector<PackedChunk> given = PackedChunks::pack(hashes);
    return change(list, [list, &given](StoreConnection& connection) {
        PackedSet missing = setOf(given);
        qint64 lastId = 0;
        PackedChunk lastChunk;
        int count = 0;
        if (!searchList(
                connection, list,
                [&missing, &count](std::string_view hash) {
                    missing.erase(hash);
                    ++count;
                },
                [&lastId, &lastChunk, &count](qint64 id, const QByteArray& stored) {
                    lastId = id;
                    lastChunk = {stored, std::exchange(count, 0)};
                })) {
            return -1;
        }
        const int added = static_cast<int>(missing.size());
        // The last chunk is filled up first: hashes that come one at a time must not get a row each.
        const bool isFilledUp = added > 0 && lastChunk.count > 0 && !lastChunk.isFull();
        QVector<PackedChunk> chunks = isFilledUp ? QVector<PackedChunk>{lastChunk} : QVector<PackedChunk>();
        PackedChunks::forEach(given, [&missing, &chunks](std::string_view hash) {
            if (missing.erase(hash) > 0) {
                PackedChunks::append(chunks, hash);
            }
        });
        return (!isFilledUp || shrink(connection, lastId, {})) && insert(connection, list, chunks) ? added
                                                                                                   : -1;
    });
}

int HashListStore::remove(int list, const QStringList& hashes)
{
    if (!isList(list)) {
        return -1;
    }
    const QVector<PackedChunk> given = PackedChunks::pack(hashes);
    const PackedSet unwanted = setOf(given);
    return change(list, [list, &unwanted](StoreConnection& connection) {
        struct Shrunk
        {
            qint64 id = 0;
            PackedChunk left;
        };
        QVector<Shrunk> all;
        PackedChunk left;
        int removed = 0;
        int removedBefore = 0;
        if (!searchList(
                connection, list,
                [&unwanted, &left, &removed](std::string_view hash) {
                    if (unwanted.count(hash) > 0) {
                        ++removed;
                    } else {
                        left.append(hash);
                    }
                },
                [&all, &left, &removed, &removedBefore](qint64 id, const QByteArray&) {
                    const PackedChunk chunk = std::exchange(left, PackedChunk());
                    if (std::exchange(removedBefore, removed) != removed) {
                        all.append({id, chunk});
                    }
                })) {
            return -1;
        }
        const bool isShrunk = std::all_of(all.cbegin(), all.cend(), [&connection](const Shrunk& shrunk) {
            return shrink(connection, shrunk.id, shrunk.left);
        });
        return isShrunk ? removed : -1;
    });
}

int HashListStore::count(int list)
{
    int number = -1;
    const bool isRead = m_store.read([list, &number](StoreConnection& connection) {
        return connection.select(
            QStringLiteral("SELECT total(hash_count) FROM ioc_hash_chunk WHERE list = ?"), {list},
            [&number](const StoreRow& row) { number = static_cast<int>(row.integer(0)); });
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
            {list, end, first}, [first, end, &hashes](const StoreRow& row, const QStringList& chunk) {
                const qint64 start = row.integer(1);
                const qint64 skipped = std::max(first - start, 0LL);
                hashes += chunk.mid(static_cast<int>(skipped), static_cast<int>(end - start - skipped));
            });
    });
    if (!isRead) {
        hashes.clear();
    }
    return isRead;
}
