#pragma once

#include <QByteArray>
#include <QString>

/// File names on disk are bytes; inside the service they are text. These two turn one into the other
/// and back without losing a byte.
///
/// A name that is UTF-8 becomes the text that it spells, a leading U+FEFF included. Each byte that is
/// no part of valid UTF-8 becomes a lone low surrogate U+DC80 to U+DCFF, which no valid text holds;
/// only these are turned back into bytes. The locale plays no part. Reentrant.
namespace FileName
{
/// The text of the bytes `name`.
QString toText(const QByteArray& name);
/// Puts it behind `text`.
void append(QString& text, const QByteArray& name);

/// The bytes of `text`, the exact ones that `toText` was given.
QByteArray toBytes(const QString& text);

/// The same for people and for other programs: each byte that is no UTF-8 is shown as "\xNN". For a name that
/// is UTF-8 this is the text itself.
QString toDisplay(const QString& text);
} // namespace FileName
