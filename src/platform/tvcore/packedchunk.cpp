#include "platform/tvcore/packedchunk.h"

#include <cstddef>
#include <numeric>

namespace
{
/// A chunk is full at this size: some 960 SHA-256 hashes, so that a list of a million takes about a thousand
/// rows, and changing a single hash writes no more than this.
constexpr int fullChunkSize = 64 * 1024;
} // namespace

bool PackedChunk::isFull() const
{
    return hashes.size() >= fullChunkSize;
}

void PackedChunk::append(std::string_view item)
{
    hashes.append(item.data(), static_cast<int>(item.size()));
    ++count;
}

void PackedChunks::append(QVector<PackedChunk>& chunks, std::string_view item)
{
    if (chunks.isEmpty() || chunks.constLast().isFull()) {
        chunks.append(PackedChunk());
        chunks.last().hashes.reserve(fullChunkSize);
    }
    chunks.last().append(item);
}

QVector<PackedChunk> PackedChunks::pack(const QStringList& hashes)
{
    QVector<PackedChunk> chunks;
    QByteArray item;
    for (const QString& hash : hashes) {
        item.resize(0);
        PackedTexts::append(item, hash);
        append(chunks, {item.constData(), static_cast<std::size_t>(item.size())});
    }
    return chunks;
}

void PackedChunks::forEach(const QVector<PackedChunk>& chunks,
                           const std::function<void(std::string_view)>& each)
{
    for (const PackedChunk& chunk : chunks) {
        PackedTexts::split(chunk.hashes, each);
    }
}

QStringList PackedChunks::unpack(const QVector<PackedChunk>& chunks)
{
    QStringList hashes;
    hashes.reserve(static_cast<int>(count(chunks)));
    for (const PackedChunk& chunk : chunks) {
        PackedTexts::unpack(chunk.hashes, hashes);
    }
    return hashes;
}

qint64 PackedChunks::count(const QVector<PackedChunk>& chunks)
{
    return std::accumulate(chunks.cbegin(), chunks.cend(), qint64(0),
                           [](qint64 sum, const PackedChunk& chunk) { return sum + chunk.count; });
}
