#pragma once

#include <QByteArray>
#include <QString>

/// Text on its way into and out of a store.
///
/// A file name may hold bytes that are no UTF-8 and may start with U+FEFF; SQLite's conversion of UTF-16
/// loses both. So text is bound and fetched as bytes: write `CAST(? AS TEXT)` and `CAST(column AS BLOB)`,
/// neither of which changes a byte. Reentrant.
namespace StoreText
{
/// Never a null array, which would be bound as NULL.
QByteArray toBound(const QString& text);
QString fromFetched(const QByteArray& bytes);
} // namespace StoreText
