#include "tvctl/hashlists/jsonstream.h"

JsonStream::JsonStream(HashListInput& input) : m_input(input)
{
    advance();
}

char JsonStream::Take()
{
    const char letter = m_letter;
    if (letter != '\0') {
        ++m_taken;
        m_line += letter == '\n' ? 1 : 0;
        advance();
    }
    return letter;
}

void JsonStream::advance()
{
    const char letter = m_isOverlong ? '\0' : nextByte();
    if (m_isInString) {
        m_letter = nextOfString(letter);
        return;
    }
    if (letter == '"') {
        m_isInString = true;
        m_isCut = false;
        m_stringSize = 0;
        m_escapeLeft = 0;
    }
    m_letter = letter;
}

char JsonStream::nextByte()
{
    if (m_rest.empty()) {
        m_rest = m_input.read();
        if (m_rest.empty()) {
            return '\0';
        }
    }
    const char letter = m_rest.front();
    m_rest.remove_prefix(1);
    return letter;
}

char JsonStream::nextOfString(char letter)
{
    ++m_stringSize;
    if (m_escapeLeft > 0) {
        // Four digits follow a 'u'; the letter behind a backslash is the only one that can be one of both.
        m_escapeLeft = m_escapeLeft == 5 ? (letter == 'u' ? 4 : 0) : m_escapeLeft - 1;
        return letter;
    }
    if (letter == '"') {
        m_isInString = false;
        return letter;
    }
    if (letter == '\\') {
        m_escapeLeft = 5;
    }
    if (m_stringSize <= longestString) {
        return letter;
    }
    // Never between the bytes of a character, nor between the two escape sequences of one: before a plain
    // letter there is neither.
    const auto code = static_cast<unsigned char>(letter);
    if (letter != '\\' && code >= ' ' && (code & 0xC0U) != 0x80U) {
        return skipRestOfString();
    }
    if (m_stringSize > 2 * longestString) {
        m_isOverlong = true;
        return '\0';
    }
    return letter;
}

char JsonStream::skipRestOfString()
{
    m_isCut = true;
    bool isEscaped = false;
    for (char letter = nextByte();; letter = nextByte()) {
        // Control characters stand in no string: the library shall see them and complain.
        if (static_cast<unsigned char>(letter) < ' ' || (letter == '"' && !isEscaped)) {
            m_isInString = false;
            return letter;
        }
        isEscaped = letter == '\\' && !isEscaped;
    }
}
