#pragma once

#include "tvctl/hashlists/hashlistinput.h"

/// Cuts a list into lines. Of a long line only the beginning is kept, so that a line of any length needs the
/// same memory.
class LineReader
{
public:
    static constexpr std::size_t longestLine = 8192;

    /// Reads from what outlives it.
    explicit LineReader(HashListInput& input) : m_input(input)
    {
    }

    /// Goes to the next line that is neither blank nor, with a '#' before anything else, a comment. False at
    /// the end of the list.
    bool next();

    /// The line without blanks before and behind it, at most `longestLine` bytes. Valid until `next`.
    std::string_view line() const;
    /// From 1 on, blank lines and comments counted.
    qint64 number() const
    {
        return m_number;
    }

private:
    bool readLine();

    HashListInput& m_input;
    std::string_view m_rest;
    std::string m_line;
    qint64 m_number = 0;
};
