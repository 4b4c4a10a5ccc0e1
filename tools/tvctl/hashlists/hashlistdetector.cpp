#include "tvctl/hashlists/hashlistdetector.h"

#include "tvctl/hashlists/cdbparser.h"
#include "tvctl/hashlists/csvreader.h"
#include "tvctl/hashlists/hashlabel.h"
#include "tvctl/hashlists/hashlistsink.h"
#include "tvctl/hashlists/hashtype.h"

#include <algorithm>
#include <vector>

namespace
{
using Cells = std::vector<std::string_view>;

bool holds(std::string_view text, std::string_view wanted)
{
    return text.find(wanted) != std::string_view::npos;
}

bool isHash(std::string_view text)
{
    text = bareHash(text);
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        text = text.substr(1, text.size() - 2);
    }
    return hashTypeOf(text).has_value();
}

bool isNumberOrStar(std::string_view text)
{
    return text == "*" || (!text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos);
}

Cells split(std::string_view line, char delimiter)
{
    Cells cells;
    while (true) {
        const std::size_t end = line.find(delimiter);
        cells.push_back(line.substr(0, end));
        if (end == std::string_view::npos) {
            return cells;
        }
        line.remove_prefix(end + 1);
    }
}

/// The first lines that are not blank. Comments are put into `comments` instead.
Cells linesOf(std::string_view text, Cells& comments)
{
    constexpr std::size_t mostLines = 50;
    Cells lines;
    for (std::string_view line : split(text, '\n')) {
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (!line.empty()) {
            (line.front() == '#' ? comments : lines).push_back(line);
        }
        if (lines.size() == mostLines) {
            break;
        }
    }
    return lines;
}

bool isHdbLine(std::string_view line)
{
    const Cells cells = split(line, ':');
    return cells.size() >= 3 && ((isHash(cells[0]) && isNumberOrStar(cells[1])) ||
                                 // Of a section; the parser tells why it cannot be taken.
                                 (isNumberOrStar(cells[0]) && isHash(cells[1])));
}

bool isCdbLine(std::string_view line)
{
    return isContainerSignature(line) || (holds(line, ":") && isHash(line.substr(0, line.find(':'))));
}

/// A semicolon behind the hash stands in tables too; those have a second hash, or a header.
bool isLokiLine(std::string_view line)
{
    const Cells cells = split(line, ';');
    return cells.size() >= 2 && isHash(cells[0]) && std::none_of(cells.begin() + 1, cells.end(), isHash);
}

bool isHeader(std::string_view line, char delimiter)
{
    const Cells cells = split(line, delimiter);
    const auto isNamed = [](std::string_view cell) {
        const HashLabel label = hashLabelOf(cell);
        return label == HashLabel::FileHash || label == HashLabel::Indicator;
    };
    // A column alone has to be called by the name of a hash: in "hash" and "value" a text may begin as well.
    return std::none_of(cells.begin(), cells.end(), isHash) &&
           (cells.size() > 1 ? std::any_of(cells.begin(), cells.end(), isNamed)
                             : hashLabelOf(line) == HashLabel::FileHash && line.size() < 16);
}

template <typename Predicate> bool most(const Cells& lines, Predicate predicate)
{
    const auto count = std::count_if(lines.begin(), lines.end(), predicate);
    return !lines.empty() && 2 * static_cast<std::size_t>(count) > lines.size();
}

bool hasHeader(const Cells& lines, char delimiter)
{
    return lines.size() > 1 && (isHeader(lines.front(), delimiter) || lines.front().substr(0, 4) == "sep=");
}

bool isTable(const Cells& lines, const Cells& comments, char delimiter)
{
    const auto isRow = [delimiter](std::string_view line) {
        const Cells cells = split(line, delimiter);
        // A long line of hashes is a list without line breaks.
        constexpr std::size_t mostColumns = 50;
        return cells.size() > 1 && cells.size() < mostColumns &&
               std::any_of(cells.begin(), cells.end(), isHash);
    };
    return most(lines, isRow) ||
           (!lines.empty() && std::any_of(comments.begin(), comments.end(), [delimiter](auto comment) {
               return holds(comment, std::string_view(&delimiter, 1)) && isHeader(comment, delimiter);
           }));
}

std::optional<HashListFormat> formatOfName(const QString& fileName)
{
    const QString suffix = fileName.section(QLatin1Char('.'), -1).toLower();
    if (suffix == QLatin1String("csv") || suffix == QLatin1String("tsv")) {
        return HashListFormat::Csv;
    }
    if (suffix == QLatin1String("hdb") || suffix == QLatin1String("hsb") || suffix == QLatin1String("hdu") ||
        suffix == QLatin1String("hsu") || suffix == QLatin1String("mdb") || suffix == QLatin1String("msb")) {
        return HashListFormat::Hdb;
    }
    if (suffix == QLatin1String("cdb")) {
        return HashListFormat::Cdb;
    }
    if (suffix == QLatin1String("ioc")) {
        return HashListFormat::OpenIoc;
    }
    const QString lower = fileName.section(QLatin1Char('/'), -1).toLower();
    if (lower.contains(QLatin1String("stix"))) {
        return HashListFormat::Stix;
    }
    if (lower.contains(QLatin1String("misp"))) {
        return HashListFormat::Misp;
    }
    if (lower.contains(QLatin1String("hash-iocs")) || lower.contains(QLatin1String("loki"))) {
        return HashListFormat::Loki;
    }
    return std::nullopt;
}

DetectedFormat detectJson(std::string_view text, std::optional<HashListFormat> byName)
{
    if (holds(text, "\"spec_version\"") || holds(text, "\"pattern_type\"") || holds(text, "\"bundle\"") ||
        holds(text, "\"bundle--") || holds(text, "\"indicator--") || holds(text, "\"file--") ||
        holds(text, "\"observed-data")) {
        return {HashListFormat::Stix, {}};
    }
    if (holds(text, "\"Event\"") || holds(text, "\"Attribute\"") || holds(text, "\"to_ids\"") ||
        holds(text, "\"Object\"")) {
        return {HashListFormat::Misp, {}};
    }
    if (byName == HashListFormat::Stix || byName == HashListFormat::Misp) {
        return {byName, {}};
    }
    return {std::nullopt, QStringLiteral("it is JSON, but looks neither like MISP nor like STIX")};
}

DetectedFormat detectXml(std::string_view text, std::optional<HashListFormat> byName)
{
    if (holds(text, "<ioc") || holds(text, "OpenIOC") || holds(text, "openioc") ||
        holds(text, "IndicatorItem") || byName == HashListFormat::OpenIoc) {
        return {HashListFormat::OpenIoc, {}};
    }
    return {std::nullopt, QStringLiteral("it is XML or HTML, but no OpenIOC")};
}

bool isJson(std::string_view text)
{
    // "[" alone begins a section of an INI file too, and a "[.]" of an address.
    const std::size_t second = text.find_first_not_of(" \t\n", 1);
    const char next = second == std::string_view::npos ? '\0' : text[second];
    return (text.front() == '{' && (next == '"' || next == '}')) ||
           (text.front() == '[' && (next == '{' || next == '[' || next == ']'));
}
} // namespace

DetectedFormat detectHashListFormat(std::string_view beginning, const QString& fileName)
{
    const QString suffix = fileName.section(QLatin1Char('.'), -1).toLower();
    if (suffix == QLatin1String("fp") || suffix == QLatin1String("sfp")) {
        // The same lines as in hdb, with the opposite meaning.
        return {std::nullopt, QStringLiteral("by its name it lists files that are known to be harmless")};
    }
    const auto byName = formatOfName(fileName);
    std::string_view text = beginning;
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n"), text.size()));
    if (!text.empty() && isJson(text)) {
        return detectJson(text, byName);
    }
    if (!text.empty() && text.front() == '<') {
        return detectXml(text, byName);
    }
    Cells comments;
    const Cells lines = linesOf(beginning, comments);
    if (most(lines, isHdbLine)) {
        return {HashListFormat::Hdb, {}};
    }
    if (most(lines, isCdbLine)) {
        return {HashListFormat::Cdb, {}};
    }
    const char delimiter = csvDelimiterOf(beginning);
    if (hasHeader(lines, delimiter)) {
        return {HashListFormat::Csv, {}};
    }
    if (most(lines, isLokiLine)) {
        return {HashListFormat::Loki, {}};
    }
    if (isTable(lines, comments, delimiter)) {
        return {HashListFormat::Csv, {}};
    }
    if (most(lines, isHash) || !byName) {
        return {HashListFormat::Plain, {}};
    }
    return {byName, {}};
}
