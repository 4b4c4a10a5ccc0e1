#pragma once

#include "tvctl/hashlists/hashlistinput.h"

#include <vector>

/// Cuts a table of delimited text into rows and cells.
///
/// A cell may be in quotes, with line breaks, delimiters and doubled quotes in it; blanks around cells do not
/// count. A line that begins with '#' is a comment, in which quotes mean nothing. Of a long cell, and of a
/// row of many cells, only the beginning is kept.
class CsvReader
{
public:
    static constexpr std::size_t longestCell = 16 * 1024;
    static constexpr std::size_t mostCells = 512;

    enum class Damage
    {
        None,
        /// A quote opens a cell and none closes it. What follows the row is read from the next line on that
        /// begins behind the kept part of the cell; the lines in between are lost.
        OpenQuote,
        TooManyCells
    };

    /// Reads from what outlives it.
    explicit CsvReader(HashListInput& input);

    /// Goes to the next row that is not blank. False at the end.
    bool next();

    const std::vector<std::string>& cells() const
    {
        return m_cells;
    }
    bool isComment() const
    {
        return m_isComment;
    }
    Damage damage() const
    {
        return m_damage;
    }
    /// Where the row begins, from 1 on.
    qint64 line() const
    {
        return m_rowLine;
    }

private:
    enum class State
    {
        /// Only blanks so far.
        CellBegins,
        Bare,
        Quoted,
        /// A quote in a quoted cell: its end, or the first of two.
        QuoteEnds
    };

    bool readRow();
    /// True when the letter ends the row.
    bool take(char letter);
    bool takeQuoted(char letter);
    void append(char letter);
    void endCell();

    HashListInput& m_input;
    std::string_view m_rest;
    char m_delimiter = ',';
    State m_state = State::CellBegins;
    std::string m_cell;
    std::vector<std::string> m_cells;
    Damage m_damage = Damage::None;
    bool m_isComment = false;
    qint64 m_line = 1;
    qint64 m_rowLine = 1;
};

/// What stands between the cells of a table, told by its first lines: a comma, a semicolon, a tabulator or a
/// bar; a comma when there is none of them. Pure.
char csvDelimiterOf(std::string_view beginning);
