#include "tvctl/hashlists/hashscanner.h"

#include "tvctl/hashlists/hashlabel.h"
#include "tvctl/hashlists/hashtype.h"

#include <utility>

namespace
{
/// Shorter runs of digits are dates, sizes and addresses.
constexpr std::size_t leastDigits = 24;
} // namespace

bool HashScanner::isWordLetter(char letter)
{
    return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'z') ||
           (letter >= 'A' && letter <= 'Z');
}

bool HashScanner::endLine(qint64 line)
{
    endWord(line);
    m_before.clear();
    m_secondBefore.clear();
    return std::exchange(m_hasFound, false);
}

bool HashScanner::scan(std::string_view text, qint64 line)
{
    for (const char letter : text) {
        if (isWordLetter(letter)) {
            append(letter);
        } else {
            endWord(line);
        }
    }
    return endLine(line);
}

void HashScanner::judgeWord(qint64 line)
{
    const std::size_t size = std::exchange(m_size, 0);
    if (size > m_word.size()) {
        if (isHexadecimal({m_word.data(), m_word.size()})) {
            m_sink.reject(line, QStringLiteral("more hexadecimal digits than any hash has"));
            m_hasFound = true;
        }
        return;
    }
    const std::string_view word = bareHash({m_word.data(), size});
    if (word.size() < leastDigits || !isHexadecimal(word)) {
        m_secondBefore.swap(m_before);
        m_before.assign(word);
        return;
    }
    m_hasFound = true;
    if (followsOtherKind()) {
        m_sink.reject(line, QStringLiteral("a number of another kind, as the word before it says"));
    } else {
        m_sink.offer(word, line);
    }
}

bool HashScanner::followsOtherKind() const
{
    const HashLabel label = hashLabelOf(m_before);
    // "ja3 hash: ..."
    return label == HashLabel::Other ||
           (label == HashLabel::Indicator && hashLabelOf(m_secondBefore) == HashLabel::Other);
}
