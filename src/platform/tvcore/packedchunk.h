#pragma once

#include "platform/tvcore/packedtexts.h"

#include <QByteArray>
#include <QStringList>
#include <QVector>

#include <functional>
#include <string_view>

/// A piece of a long list of texts, as it is stored: see PackedTexts.
struct PackedChunk
{
    QByteArray hashes;
    int count = 0;

    bool isFull() const;
    void append(std::string_view item);
};

/// A long list in chunks. Reentrant.
namespace PackedChunks
{
/// Appends the packed form of a text to the last of `chunks`, or to a new one behind it when that is full.
void append(QVector<PackedChunk>& chunks, std::string_view item);

QVector<PackedChunk> pack(const QStringList& hashes);

/// Calls `each` with the packed form of one text after the other, which lies in `chunks`.
void forEach(const QVector<PackedChunk>& chunks, const std::function<void(std::string_view)>& each);

/// The texts in `chunks`.
QStringList unpack(const QVector<PackedChunk>& chunks);

/// How many texts there are.
qint64 count(const QVector<PackedChunk>& chunks);
} // namespace PackedChunks
