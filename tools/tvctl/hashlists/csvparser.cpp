#include "tvctl/hashlists/csvparser.h"

#include "tvctl/hashlists/csvreader.h"
#include "tvctl/hashlists/hashscanner.h"
#include "tvctl/hashlists/hashtype.h"

#include <algorithm>
#include <array>

namespace
{
QString reasonOf(CsvReader::Damage damage)
{
    return damage == CsvReader::Damage::OpenQuote
               ? QStringLiteral("a quote is opened here and never closed; the lines behind it are lost")
               : QStringLiteral("more than %1 columns; the others are left out").arg(CsvReader::mostCells);
}

bool isEmpty(const std::string& cell)
{
    constexpr std::array<std::string_view, 9> fillers = {"",     "-",    "n/a",  "N/A", "null",
                                                         "NULL", "none", "None", "NA"};
    return std::find(fillers.begin(), fillers.end(), cell) != fillers.end();
}

bool hasHash(const std::vector<std::string>& cells)
{
    return std::any_of(cells.begin(), cells.end(),
                       [](const std::string& cell) { return hashTypeOf(bareHash(cell)).has_value(); });
}
} // namespace

QString CsvParser::parse(HashListInput& input, HashListSink& sink)
{
    CsvReader reader(input);
    // Titles may stand above the header, but no data.
    bool mayBeHeader = true;
    while (reader.next()) {
        if (reader.damage() != CsvReader::Damage::None) {
            sink.reject(reader.line(), reasonOf(reader.damage()));
        }
        if (reader.isComment()) {
            // A sentence with the word "hash" in it is no header.
            if (mayBeHeader && reader.cells().size() > 1) {
                readHeader(reader);
            }
            continue;
        }
        // Tells spreadsheets the delimiter.
        if (mayBeHeader && reader.cells().front().compare(0, 4, "sep=") == 0) {
            continue;
        }
        mayBeHeader = mayBeHeader && !hasHash(reader.cells());
        if (mayBeHeader && readHeader(reader)) {
            mayBeHeader = false;
        } else {
            readRow(reader, sink);
        }
    }
    return {};
}

bool CsvParser::readHeader(const CsvReader& reader)
{
    std::vector<HashLabel> labels;
    std::transform(reader.cells().begin(), reader.cells().end(), std::back_inserter(labels),
                   [](const std::string& cell) { return hashLabelOf(cell); });
    const auto has = [&labels](HashLabel label) {
        return std::find(labels.begin(), labels.end(), label) != labels.end();
    };
    if (!has(HashLabel::FileHash) && !has(HashLabel::Indicator) && !has(HashLabel::Other)) {
        return false;
    }
    m_read = has(HashLabel::FileHash)    ? HashLabel::FileHash
             : has(HashLabel::Indicator) ? HashLabel::Indicator
                                         : HashLabel::None;
    m_labels = labels;
    return true;
}

HashLabel CsvParser::labelOf(std::size_t column) const
{
    return column < m_labels.size() ? m_labels[column] : HashLabel::None;
}

bool CsvParser::isOtherType(const std::vector<std::string>& cells) const
{
    for (std::size_t column = 0; column < cells.size(); ++column) {
        if (labelOf(column) == HashLabel::Type && hashLabelOf(cells[column]) == HashLabel::Other) {
            return true;
        }
    }
    return false;
}

void CsvParser::readRow(const CsvReader& reader, HashListSink& sink) const
{
    const std::vector<std::string>& cells = reader.cells();
    const qint64 line = reader.line();
    if (m_read != HashLabel::FileHash && isOtherType(cells)) {
        sink.reject(line, QStringLiteral("a number of another kind, as the type says"));
        return;
    }
    bool hasFound = reader.damage() != CsvReader::Damage::None;
    for (std::size_t column = 0; column < cells.size(); ++column) {
        const std::string& cell = cells[column];
        const HashLabel label = labelOf(column);
        if (m_read == HashLabel::None) {
            if (label != HashLabel::Other && hashTypeOf(bareHash(cell))) {
                sink.offer(cell, line);
                hasFound = true;
            }
        } else if (label == m_read && !isEmpty(cell)) {
            // "md5:..." and several hashes in one cell are usual.
            HashScanner scanner(sink);
            if (scanner.scan(cell, line)) {
                hasFound = true;
            } else if (m_read == HashLabel::FileHash) {
                sink.offer(cell, line);
                hasFound = true;
            }
        }
    }
    if (!hasFound) {
        sink.reject(line, QStringLiteral("no hash in this row"));
    }
}
