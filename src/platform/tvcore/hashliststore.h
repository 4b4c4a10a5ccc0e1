#pragma once

#include "platform/tvcore/store.h"

#include <QStringList>

#include <array>

/// The lists of known-bad hashes in the settings file, and what was last read from it or written to it.
///
/// A list is stored in chunks of many hashes, in order. What writes refuses a number that names no list; what
/// reads finds such a list empty. For the operations see IOCScanConfig, and SettingsStore for a list that is
/// not in the file.
class HashListStore
{
public:
    /// Works on a store that outlives it.
    explicit HashListStore(Store& store);

    /// What was read or written so far is not answered any more.
    void forget();

    QStringList hashes(int list);
    bool setHashes(int list, const QStringList& hashes);
    int add(int list, const QStringList& hashes);
    int remove(int list, const QStringList& hashes);
    int count(int list);
    bool find(int list, QStringList& hashes, int from, int limit);

private:
    static constexpr int listCount = 3;

    static bool isList(int list);

    Store& m_store;
    std::array<QStringList, listCount> m_last;
};
