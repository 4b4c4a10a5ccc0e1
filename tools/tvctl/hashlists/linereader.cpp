#include "tvctl/hashlists/linereader.h"

#include "tvctl/hashlists/hashlistsink.h"

#include <algorithm>

bool LineReader::next()
{
    while (readLine()) {
        const std::string_view text = line();
        if (!text.empty() && text.front() != '#') {
            return true;
        }
    }
    return false;
}

std::string_view LineReader::line() const
{
    constexpr std::string_view blanks = " \t\v\f";
    const std::string_view text = m_line;
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool LineReader::readLine()
{
    m_line.clear();
    bool isBegun = false;
    while (true) {
        if (m_rest.empty()) {
            m_rest = m_input.read();
            if (m_rest.empty()) {
                m_number += isBegun ? 1 : 0;
                return isBegun;
            }
        }
        const std::size_t end = m_rest.find('\n');
        const std::string_view piece = m_rest.substr(0, end);
        m_line.append(piece.substr(0, longestLine - m_line.size()));
        isBegun = true;
        if (end != std::string_view::npos) {
            m_rest.remove_prefix(end + 1);
            ++m_number;
            return true;
        }
        m_rest = {};
    }
}
