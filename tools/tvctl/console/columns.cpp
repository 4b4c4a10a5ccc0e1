#include "tvctl/console/columns.h"

#include <algorithm>

QStringList alignColumns(const QVector<QStringList>& rows)
{
    QVector<int> widths;
    for (const QStringList& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (int column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths.at(column), row.at(column).size());
        }
    }
    QStringList lines;
    lines.reserve(rows.size());
    for (const QStringList& row : rows) {
        QString line;
        for (int column = 0; column < row.size(); ++column) {
            const bool isLast = column == row.size() - 1;
            line += isLast ? row.at(column)
                           : row.at(column).leftJustified(widths.at(column) + 2, QLatin1Char(' '));
        }
        lines += line;
    }
    return lines;
}
