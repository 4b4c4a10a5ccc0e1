// The body and the title of a popup, made of names that an attacker chose: well-formed markup with no tag but
// <b>, in which every other character of the message is to be seen as text.

#include "fuzz/property.h"
#include "platform/tvnotify/popupmarkup.h"

#include <QVector>
#include <QXmlStreamReader>

#include <cstdint>
#include <cstring>

namespace
{
/// A part of what a popup shows: a tag, or a character.
struct Part
{
    enum Kind
    {
        BoldStart,
        BoldEnd,
        Character
    };

    Kind kind;
    uint codePoint;
};

/// As a notification server reads it.
QVector<Part> partsOf(const QString& markup)
{
    QVector<Part> parts;
    QXmlStreamReader reader(QStringLiteral("<body>") + markup + QStringLiteral("</body>"));
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            if (++depth > 1) {
                require(reader.name() == QLatin1String("b") && reader.attributes().isEmpty(),
                        "<b> is the only tag");
                require(depth == 2, "bold stands in nothing bold");
                parts.append({Part::BoldStart, 0});
            }
            break;
        case QXmlStreamReader::EndElement:
            if (--depth > 0) {
                parts.append({Part::BoldEnd, 0});
            }
            break;
        case QXmlStreamReader::Characters:
            require(!reader.isCDATA(), "text is written as such");
            for (const uint codePoint : reader.text().toString().toUcs4()) {
                parts.append({Part::Character, codePoint});
            }
            break;
        case QXmlStreamReader::StartDocument:
        case QXmlStreamReader::EndDocument:
            break;
        default:
            require(false, "there is nothing but tags and text");
        }
    }
    require(!reader.hasError(), "the markup is well-formed");
    return parts;
}

bool isSafe(uint codePoint)
{
    const bool isControl = codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
    const bool breaksLines = codePoint == 0x2028 || codePoint == 0x2029;
    const bool turns =
        (codePoint >= 0x202A && codePoint <= 0x202E) || (codePoint >= 0x2066 && codePoint <= 0x2069);
    return !isControl && !breaksLines && !turns && !QChar::isSurrogate(codePoint) &&
           !QChar::isNonCharacter(codePoint);
}

/// What is shown for a character of the message: itself, or a stand-in.
bool showsAs(uint codePoint, uint shown)
{
    return isSafe(codePoint) ? shown == codePoint : shown == 0xFFFD || (shown >= 0x2400 && shown <= 0x2421);
}

/// The next character of `text` from `position` on, lone surrogates too.
uint takeCharacter(const QString& text, int& position)
{
    const QChar first = text.at(position++);
    if (first.isHighSurrogate() && position < text.size() && text.at(position).isLowSurrogate()) {
        return QChar::surrogateToUcs4(first, text.at(position++));
    }
    return first.unicode();
}

bool standsAt(const QString& text, int position, const char* wanted)
{
    return text.midRef(position).startsWith(QLatin1String(wanted));
}

void checkBody(const QString& message)
{
    const QString markup = popupMarkup(message);
    int position = 0;
    int shown = 0;
    int boldSince = -1;
    bool isCut = false;
    bool isInPath = false;
    for (const Part& part : partsOf(markup)) {
        if (part.kind == Part::BoldStart) {
            require(standsAt(message, position, "<b>"), "bold begins where the message says so");
            require(!isInPath, "nothing is bold in a path");
            position += 3;
            boldSince = position;
        } else if (part.kind == Part::BoldEnd) {
            require(isCut || standsAt(message, position, "</b>"), "bold ends where the message says so");
            require(isCut || !message.mid(boldSince, position - boldSince).contains(QLatin1String("<br/>")),
                    "bold ends on its line");
            position += isCut ? 0 : 4;
        } else if (shown == maximumPopupBody) {
            require(part.codePoint == 0x2026 && position < message.size() && !isCut,
                    "a long message ends in dots");
            isCut = true;
        } else if (part.codePoint == '\n') {
            require(standsAt(message, position, "<br/>"), "only <br/> breaks a line");
            require(!isInPath, "no path breaks a line");
            position += 5;
        } else {
            require(position < message.size(), "nothing is shown that the message has not");
            require(isSafe(part.codePoint), "what is shown steers nothing");
            require(showsAs(takeCharacter(message, position), part.codePoint),
                    "a character is shown as it is");
            isInPath = isInPath || part.codePoint == '/';
        }
        shown += isCut ? 0 : 1;
    }
    require(isCut || position == message.size(), "nothing of the message is left out");
}

void checkTitle(const QString& text)
{
    const QString shown = popupText(text);
    int position = 0;
    int count = 0;
    for (const uint codePoint : shown.toUcs4()) {
        require(isSafe(codePoint), "a title steers nothing");
        if (count++ == maximumPopupTitle) {
            require(codePoint == 0x2026 && position < text.size(), "a long title ends in dots");
            position = text.size();
        } else {
            require(position < text.size() && showsAs(takeCharacter(text, position), codePoint),
                    "a character of a title is shown as it is");
        }
    }
    require(position == text.size(), "nothing of a title is left out");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const auto* const bytes = reinterpret_cast<const char*>(data);
    QString text = QString::fromUtf8(bytes, static_cast<int>(size));
    if (bytes[0] == 'w') {
        // Names come as UTF-8; this way also what no UTF-8 spells.
        text.resize(static_cast<int>((size - 1) / sizeof(QChar)));
        std::memcpy(text.data(), bytes + 1, static_cast<std::size_t>(text.size()) * sizeof(QChar));
    }
    checkBody(text);
    checkTitle(text);
    return 0;
}
