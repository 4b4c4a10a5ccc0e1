#include "tvctl/console/columns.h"

#include "tvctl/console/textwidth.h"

#include <algorithm>

namespace
{
constexpr int columnGap = 2;
} // namespace

QStringList alignColumns(const QVector<QStringList>& rows)
{
    QVector<int> widths;
    for (const QStringList& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (int column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths.at(column), TextWidth::of(row.at(column)));
        }
    }
    QStringList lines;
    lines.reserve(rows.size());
    for (const QStringList& row : rows) {
        QString line;
        int missing = 0;
        for (int column = 0; column < row.size(); ++column) {
            const QString& cell = row.at(column);
            // Only when something follows: no spaces at the end of a line.
            if (!cell.isEmpty()) {
                line += QString(missing, QLatin1Char(' ')) + cell;
                missing = 0;
            }
            missing += widths.at(column) - TextWidth::of(cell) + columnGap;
        }
        lines += line;
    }
    return lines;
}
