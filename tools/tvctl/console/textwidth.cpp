#include "tvctl/console/textwidth.h"

#include <clocale>
#include <cwchar>

namespace
{
/// The C library knows how wide a letter is, but only in a locale that has that letter. The tool's own may be
/// anything.
class Utf8Locale
{
public:
    Utf8Locale()
    {
        static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        m_before = utf8 == nullptr ? nullptr : ::uselocale(utf8);
    }
    ~Utf8Locale()
    {
        if (m_before != nullptr) {
            ::uselocale(m_before);
        }
    }
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    locale_t m_before;
};

int widthOf(uint codePoint)
{
    // What it does not know is mostly shown as a box.
    const int width = ::wcwidth(static_cast<wchar_t>(codePoint));
    return width < 0 ? 1 : width;
}

/// A character, in one unit of the text or in two.
struct Character
{
    uint codePoint;
    int size;
};

Character characterAt(const QString& text, int position)
{
    const QChar first = text.at(position);
    if (first.isHighSurrogate() && position + 1 < text.size() && text.at(position + 1).isLowSurrogate()) {
        return {QChar::surrogateToUcs4(first, text.at(position + 1)), 2};
    }
    return {first.unicode(), 1};
}

/// Where the sequence ends that begins at `position` ("ESC [ numbers m"); `position` when none begins there.
int endOfColour(const QString& text, int position)
{
    if (text.at(position) != QLatin1Char('\033') || position + 1 >= text.size() ||
        text.at(position + 1) != QLatin1Char('[')) {
        return position;
    }
    const int end = text.indexOf(QLatin1Char('m'), position);
    return end < 0 ? position : end + 1;
}
} // namespace

int TextWidth::of(const QString& text)
{
    const Utf8Locale locale;
    int width = 0;
    for (int i = 0; i < text.size();) {
        const int end = endOfColour(text, i);
        if (end > i) {
            i = end;
            continue;
        }
        const Character character = characterAt(text, i);
        width += widthOf(character.codePoint);
        i += character.size;
    }
    return width;
}

QString TextWidth::left(const QString& text, int columns)
{
    const Utf8Locale locale;
    int width = 0;
    int end = 0;
    while (end < text.size()) {
        const Character character = characterAt(text, end);
        width += widthOf(character.codePoint);
        if (width > columns) {
            break;
        }
        end += character.size;
    }
    return text.left(end);
}

QString TextWidth::right(const QString& text, int columns)
{
    // From the front, since a letter's second unit alone tells nothing.
    const int surplus = of(text) - columns;
    const Utf8Locale locale;
    int width = 0;
    int start = 0;
    while (start < text.size() && width < surplus) {
        const Character character = characterAt(text, start);
        width += widthOf(character.codePoint);
        start += character.size;
    }
    // Marks without the letter that they stand above.
    while (start > 0 && start < text.size()) {
        const Character character = characterAt(text, start);
        if (widthOf(character.codePoint) != 0) {
            break;
        }
        start += character.size;
    }
    return text.mid(start);
}
