#pragma once

#include <QStringList>
#include <QVector>

/// Lines in which the cells of each column begin below one another, two spaces apart; no spaces at the end.
/// Rows may be of different lengths. Cells must be printable already; they may be coloured.
QStringList alignColumns(const QVector<QStringList>& rows);
