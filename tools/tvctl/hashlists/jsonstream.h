#pragma once

#include "tvctl/hashlists/hashlistinput.h"

/// A list as the stream of characters that the JSON library reads from.
///
/// The library keeps the whole of the string that it reads. So a long one (samples are attached to events) is
/// passed on with its beginning only, cut at a place where nothing is torn apart.
class JsonStream
{
public:
    using Ch = char;

    /// More is needed by no hash, name or pattern.
    static constexpr std::size_t longestString = 4 * 1024 * 1024;

    /// Reads from what outlives it.
    explicit JsonStream(HashListInput& input);

    char Peek() const
    {
        return m_letter;
    }
    char Take();
    /// How many characters were taken.
    std::size_t Tell() const
    {
        return m_taken;
    }

    // The library asks for these of every stream, and uses them only with streams that are written to.
    char* PutBegin()
    {
        return nullptr;
    }
    void Put(char)
    {
    }
    std::size_t PutEnd(char*)
    {
        return 0;
    }

    /// The line of the next character, from 1 on.
    qint64 line() const
    {
        return m_line;
    }
    /// The string that was taken last is only a beginning.
    bool isCut() const
    {
        return m_isCut;
    }
    /// A string could not be cut, and the stream ends in it.
    bool isOverlong() const
    {
        return m_isOverlong;
    }

private:
    void advance();
    char nextByte();
    char nextOfString(char letter);
    char skipRestOfString();

    HashListInput& m_input;
    std::string_view m_rest;
    char m_letter = '\0';
    std::size_t m_taken = 0;
    qint64 m_line = 1;
    bool m_isInString = false;
    bool m_isCut = false;
    bool m_isOverlong = false;
    std::size_t m_stringSize = 0;
    /// So many of the next characters belong to an escape sequence.
    int m_escapeLeft = 0;
};
