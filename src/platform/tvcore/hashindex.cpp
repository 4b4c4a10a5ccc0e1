#include "platform/tvcore/hashindex.h"

#include "platform/tvcore/packedtexts.h"

#include <QByteArray>

namespace
{
/// For each hash: with half of them empty, a search for what is not there looks at two or three.
constexpr qint64 slotsPerHash = 2;
constexpr int bitsOfPlacement = 32;
} // namespace

HashIndex::HashIndex() = default;
HashIndex::HashIndex(HashIndex&& other) noexcept = default;
HashIndex& HashIndex::operator=(HashIndex&& other) noexcept = default;
HashIndex::~HashIndex() = default;

HashIndex::HashIndex(const QStringList& hashes) : HashIndex(PackedChunks::pack(hashes))
{
}

HashIndex::HashIndex(const QVector<PackedChunk>& chunks)
    : m_chunks(chunks),
      m_table(static_cast<std::size_t>(slotsPerHash * PackedChunks::count(chunks)))
{
    PackedChunks::forEach(m_chunks, [this](std::string_view item) { m_table[slotOf(item)] = item.data(); });
}

bool HashIndex::contains(const QString& hash) const
{
    if (m_table.empty()) {
        return false;
    }
    QByteArray item;
    PackedTexts::append(item, hash);
    return m_table[slotOf({item.constData(), static_cast<std::size_t>(item.size())})] != nullptr;
}

std::size_t HashIndex::slotOf(std::string_view item) const
{
    const quint64 placement = qHashBits(item.data(), item.size(), m_seed);
    std::size_t slot = placement * m_table.size() >> bitsOfPlacement;
    while (m_table[slot] != nullptr && PackedTexts::itemAt(m_table[slot]) != item) {
        slot = slot + 1 < m_table.size() ? slot + 1 : 0;
    }
    return slot;
}
