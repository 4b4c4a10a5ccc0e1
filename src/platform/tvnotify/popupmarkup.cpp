#include "platform/tvnotify/popupmarkup.h"

#include <QStringView>

namespace
{

constexpr char32_t replacementCharacter = 0xFFFD;
constexpr ushort ellipsis = 0x2026;
constexpr QLatin1Char pathStart('/');

enum class Tag
{
    None,
    BoldStart,
    BoldEnd,
    LineBreak,
};

struct TagText
{
    Tag tag;
    QStringView text;
};

const TagText tagTexts[] = {
    {Tag::BoldStart, u"<b>"},
    {Tag::BoldEnd, u"</b>"},
    {Tag::LineBreak, u"<br/>"},
};

/// The tag that `text` starts with.
TagText tagAtStart(QStringView text)
{
    // Most characters begin none.
    if (!text.isEmpty() && text.front() == QLatin1Char('<')) {
        for (const TagText& entry : tagTexts) {
            if (text.startsWith(entry.text)) {
                return entry;
            }
        }
    }
    return {Tag::None, {}};
}

/// The first tag in `text` before any path.
Tag firstTag(QStringView text)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        const Tag tag = tagAtStart(text.mid(i)).tag;
        if (tag != Tag::None || text[i] == pathStart) {
            return tag;
        }
    }
    return Tag::None;
}

bool turnsReadingDirection(char32_t character)
{
    return (character >= 0x202A && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
}

char32_t showable(char32_t character)
{
    if (character < 0x20) {
        return 0x2400 + character; // the picture of the control character
    }
    if (character == 0x7F) {
        return 0x2421;
    }
    const bool isC1Control = character >= 0x80 && character <= 0x9F;
    const bool isSeparator = character == 0x2028 || character == 0x2029;
    if (isC1Control || isSeparator || turnsReadingDirection(character) || QChar::isNonCharacter(character) ||
        QChar::isSurrogate(character)) {
        return replacementCharacter;
    }
    return character;
}

/// Takes one whole character off the front of `text`.
char32_t takeCharacter(QStringView& text)
{
    if (text.size() > 1 && text[0].isHighSurrogate() && text[1].isLowSurrogate()) {
        const char32_t character = QChar::surrogateToUcs4(text[0], text[1]);
        text = text.mid(2);
        return showable(character);
    }
    const char32_t character = text[0].unicode();
    text = text.mid(1);
    return showable(character);
}

void appendCharacter(QString& out, char32_t character)
{
    if (QChar::requiresSurrogates(character)) {
        out += QChar(QChar::highSurrogate(character));
        out += QChar(QChar::lowSurrogate(character));
    } else {
        out += QChar(static_cast<ushort>(character));
    }
}

void appendEscaped(QString& out, char32_t character)
{
    switch (character) {
    case U'&':
        out += QLatin1String("&amp;");
        break;
    case U'<':
        out += QLatin1String("&lt;");
        break;
    case U'>':
        out += QLatin1String("&gt;");
        break;
    case U'"':
        out += QLatin1String("&quot;");
        break;
    default:
        appendCharacter(out, character);
    }
}

} // namespace

QString popupMarkup(const QString& message)
{
    QString out;
    QStringView rest(message);
    bool bold = false;
    // Directories named "<br" and "<b>Virus Name:<" make tags in a path that look just like the message's
    // own.
    bool isInPath = false;
    for (int shown = 0; !rest.isEmpty(); ++shown) {
        if (shown == maximumPopupBody) {
            out += QChar(ellipsis);
            break;
        }
        const TagText tag = isInPath ? TagText{Tag::None, {}} : tagAtStart(rest);
        const QStringView afterTag = rest.mid(tag.text.size());
        if (tag.tag == Tag::LineBreak) {
            out += QLatin1Char('\n');
            rest = afterTag;
        } else if (tag.tag == Tag::BoldStart && firstTag(afterTag) == Tag::BoldEnd) {
            // Only a pair with nothing between its halves counts: a lone <b> in a file name would otherwise
            // take the end tag of the line after it, and that line's own <b> would show as text.
            out += tag.text.toString();
            bold = true;
            rest = afterTag;
        } else if (tag.tag == Tag::BoldEnd && bold) {
            out += tag.text.toString();
            bold = false;
            rest = afterTag;
        } else {
            isInPath = isInPath || rest[0] == pathStart;
            appendEscaped(out, takeCharacter(rest));
        }
    }
    if (bold) {
        out += QLatin1String("</b>");
    }
    return out;
}

QString popupText(const QString& text)
{
    QString out;
    QStringView rest(text);
    for (int shown = 0; !rest.isEmpty(); ++shown) {
        if (shown == maximumPopupTitle) {
            out += QChar(ellipsis);
            break;
        }
        appendCharacter(out, takeCharacter(rest));
    }
    return out;
}
