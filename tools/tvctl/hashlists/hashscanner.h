#pragma once

#include "tvctl/hashlists/hashlistsink.h"

#include <array>
#include <string>

/// Finds the hashes in running text that is fed to it letter by letter, and hands them to a sink.
///
/// A hash is a whole word of hexadecimal digits: letters and digits end at anything else, also at '_', so
/// that no part of a longer word is ever taken. A word of digits that is nearly a hash is rejected, and so is
/// one behind the name of another kind ("imphash: ..."). Needs the same small memory for any text.
class HashScanner
{
public:
    /// Hands to a sink that outlives it.
    explicit HashScanner(HashListSink& sink) : m_sink(sink)
    {
    }

    static bool isWordLetter(char letter);

    /// Goes on with the word by a letter for which `isWordLetter` holds.
    void append(char letter)
    {
        if (m_size < m_word.size()) {
            m_word[m_size] = letter;
        }
        ++m_size;
    }
    void endWord(qint64 line)
    {
        if (m_size > 0) {
            judgeWord(line);
        }
    }
    /// Ends the word and forgets what stood before. True when something was accepted or rejected since the
    /// last such call.
    bool endLine(qint64 line);

    /// A whole text. True when something in it was accepted or rejected.
    bool scan(std::string_view text, qint64 line);

private:
    void judgeWord(qint64 line);
    bool followsOtherKind() const;

    HashListSink& m_sink;
    /// Room for the longest hash there is, with "0x" before it.
    std::array<char, 132> m_word = {};
    /// Of the whole word, which may be longer.
    std::size_t m_size = 0;
    /// The two words before that are no hashes, with their beginnings. Names are looked up only when a hash
    /// follows: most text has none.
    std::string m_before;
    std::string m_secondBefore;
    bool m_hasFound = false;
};
