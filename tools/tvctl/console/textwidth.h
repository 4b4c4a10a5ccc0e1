#pragma once

#include <QString>

/// How much room printable text takes on a terminal: letters of some scripts and pictures take two columns,
/// marks that stand above others none, and sequences that set colours none.
namespace TextWidth
{
int of(const QString& text);

/// As much of the beginning as has room in `columns`; without colours.
QString left(const QString& text, int columns);

/// The same of the end.
QString right(const QString& text, int columns);
} // namespace TextWidth
