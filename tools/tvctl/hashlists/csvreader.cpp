#include "tvctl/hashlists/csvreader.h"

#include "tvctl/hashlists/hashlistsink.h"

#include <algorithm>

namespace
{
std::vector<std::string_view> firstLinesOf(std::string_view text)
{
    constexpr std::size_t mostLines = 20;
    std::vector<std::string_view> lines;
    while (!text.empty() && lines.size() < mostLines) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.find_first_not_of(" \t#") != std::string_view::npos) {
            lines.push_back(line);
        }
    }
    return lines;
}

std::ptrdiff_t countOutsideQuotes(std::string_view line, char wanted)
{
    std::ptrdiff_t count = 0;
    bool isQuoted = false;
    for (const char letter : line) {
        isQuoted = isQuoted != (letter == '"');
        count += letter == wanted && !isQuoted ? 1 : 0;
    }
    return count;
}
} // namespace

char csvDelimiterOf(std::string_view beginning)
{
    const std::vector<std::string_view> lines = firstLinesOf(beginning);
    // The last line stands for the table: above it there may be comments.
    char best = ',';
    std::ptrdiff_t bestScore = 0;
    for (const char delimiter : {',', ';', '\t', '|'}) {
        const std::ptrdiff_t perLine = lines.empty() ? 0 : countOutsideQuotes(lines.back(), delimiter);
        const auto alike = std::count_if(lines.begin(), lines.end(), [delimiter, perLine](auto line) {
            return countOutsideQuotes(line, delimiter) == perLine;
        });
        const std::ptrdiff_t score = perLine == 0 ? 0 : alike * 1000 + std::min<std::ptrdiff_t>(perLine, 999);
        if (score > bestScore) {
            best = delimiter;
            bestScore = score;
        }
    }
    return best;
}

CsvReader::CsvReader(HashListInput& input) : m_input(input), m_delimiter(csvDelimiterOf(input.beginning()))
{
}

bool CsvReader::next()
{
    while (readRow()) {
        const bool isBlank =
            std::all_of(m_cells.begin(), m_cells.end(), [](const std::string& cell) { return cell.empty(); });
        if (!isBlank || m_damage != Damage::None) {
            return true;
        }
    }
    return false;
}

bool CsvReader::readRow()
{
    m_cells.clear();
    m_damage = Damage::None;
    m_isComment = false;
    m_rowLine = m_line;
    while (true) {
        if (m_rest.empty()) {
            m_rest = m_input.read();
        }
        if (m_rest.empty()) {
            const bool isBegun = !m_cells.empty() || !m_cell.empty() || m_state != State::CellBegins;
            if (m_state == State::Quoted) {
                m_damage = Damage::OpenQuote;
            }
            endCell();
            return isBegun;
        }
        const char letter = m_rest.front();
        m_rest.remove_prefix(1);
        m_line += letter == '\n' ? 1 : 0;
        if (take(letter)) {
            endCell();
            return true;
        }
    }
}

bool CsvReader::take(char letter)
{
    if (m_state == State::Quoted || (m_state == State::QuoteEnds && letter == '"')) {
        return takeQuoted(letter);
    }
    if (letter == '\n') {
        return true;
    }
    if (letter == m_delimiter) {
        endCell();
    } else if (m_state == State::CellBegins && letter == '#' && m_cells.empty()) {
        m_isComment = true;
        m_state = State::Bare;
    } else if (m_state == State::CellBegins && letter == '"' && !m_isComment) {
        m_state = State::Quoted;
    } else if (m_state != State::CellBegins || (letter != ' ' && letter != '\t')) {
        m_state = State::Bare;
        append(letter);
    }
    return false;
}

bool CsvReader::takeQuoted(char letter)
{
    if (m_state == State::QuoteEnds) {
        m_state = State::Quoted;
        append(letter);
    } else if (letter == '"') {
        m_state = State::QuoteEnds;
    } else if (letter == '\n' && m_cell.size() >= longestCell) {
        m_damage = Damage::OpenQuote;
        return true;
    } else {
        append(letter);
    }
    return false;
}

void CsvReader::append(char letter)
{
    if (m_cell.size() < longestCell) {
        m_cell += letter;
    }
}

void CsvReader::endCell()
{
    if (m_cells.size() < mostCells) {
        const std::size_t last = m_cell.find_last_not_of(" \t");
        m_cells.push_back(m_cell.substr(0, last == std::string::npos ? 0 : last + 1));
    } else if (m_damage == Damage::None) {
        m_damage = Damage::TooManyCells;
    }
    m_cell.clear();
    m_state = State::CellBegins;
}
