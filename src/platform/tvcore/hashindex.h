#pragma once

#include "platform/tvcore/packedchunk.h"
#include "platform/tvcore/tvcoreexport.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

#include <cstddef>
#include <string_view>
#include <vector>

/// A list of known-bad hashes to look into, made for millions of them.
///
/// The hashes stay as they are stored, one byte for a character, with a table of where each lies: a text for
/// each, and a node for each in a set, would take three times the memory and eight times the time to make.
/// Any text may be listed: nothing is converted, and "AB" differs from "ab". Reentrant.
class TVCORE_EXPORT HashIndex
{
public:
    /// Of an empty list.
    HashIndex();
    explicit HashIndex(const QStringList& hashes);
    /// Of sound chunks.
    explicit HashIndex(const QVector<PackedChunk>& chunks);
    HashIndex(HashIndex&& other) noexcept;
    HashIndex& operator=(HashIndex&& other) noexcept;
    HashIndex(const HashIndex&) = delete;
    HashIndex& operator=(const HashIndex&) = delete;
    ~HashIndex();

    bool contains(const QString& hash) const;

private:
    /// Where in the table `item` is, or would be put. Not for an empty table.
    std::size_t slotOf(std::string_view item) const;

    QVector<PackedChunk> m_chunks;
    /// Of Qt's function, so that nobody can make up a list of hashes that all go to one place.
    uint m_seed = static_cast<uint>(qGlobalQHashSeed());
    /// Each packed form in `m_chunks`, at the place that it hashes to or behind; null where there is none.
    std::vector<const char*> m_table;
};
