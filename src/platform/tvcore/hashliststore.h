#pragma once

#include "platform/tvcore/hashindex.h"
#include "platform/tvcore/packedchunk.h"
#include "platform/tvcore/store.h"

#include <QStringList>
#include <QVector>

#include <array>
#include <functional>
#include <optional>

/// The lists of known-bad hashes in the settings file, and what was last read from it or written to it.
///
/// A list is stored in chunks of many hashes, in order. What writes refuses a number that names no list; what
/// reads finds such a list empty. For the operations see IOCScanConfig, and SettingsStore for a list that is
/// not in the file.
///
/// Adding and removing hold one chunk of the list at a time and what they were given. Only a list that was
/// read or set as a whole before is kept in memory, and kept up to date then.
class HashListStore
{
public:
    /// Works on a store that outlives it.
    explicit HashListStore(Store& store);

    /// What was read or written so far is not answered any more.
    void forget();

    QStringList hashes(int list);
    HashIndex index(int list);
    bool setHashes(int list, const QStringList& hashes);
    int add(int list, const QStringList& hashes);
    int remove(int list, const QStringList& hashes);
    int count(int list);
    bool find(int list, QStringList& hashes, int from, int limit);

private:
    static constexpr int listCount = 3;

    using Last = std::optional<QVector<PackedChunk>>;

    static bool isList(int list);
    /// The list, or what was kept of it.
    QVector<PackedChunk> read(int list);
    Last& last(int list);
    /// Runs `work`, which answers how many hashes it changed, or -1; likewise.
    int change(int list, const std::function<int(StoreConnection&)>& work);

    Store& m_store;
    std::array<Last, listCount> m_last;
};
