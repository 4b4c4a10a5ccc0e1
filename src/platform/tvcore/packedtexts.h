#pragma once

#include <QByteArray>
#include <QStringList>

#include <functional>
#include <string_view>

/// Many texts in one value of a store: a row for each of a million hashes could not be read in time.
///
/// Any text comes back unchanged, also one that is no valid UTF-16. Each is its length in UTF-16 units times
/// two, plus one if it is wide, as 32 bits in little-endian order; then the units: a byte each for Latin-1
/// text, so that a hexadecimal hash can be read in a dump, two bytes in little-endian order for wide text.
/// Reentrant.
namespace PackedTexts
{
/// Adds `text` to `packed`.
void append(QByteArray& packed, const QString& text);

/// Adds the texts in `packed` to `texts`. False when they are not what `append` made.
bool unpack(const QByteArray& packed, QStringList& texts);

/// The packed form that begins at `start`.
std::string_view itemAt(const char* start);

/// Calls `each` with the packed form of one text after the other, which lies in `packed`. Texts are equal
/// when these are, so that a long list can be searched without making a text of each item. As `unpack`.
bool split(const QByteArray& packed, const std::function<void(std::string_view)>& each);
} // namespace PackedTexts
