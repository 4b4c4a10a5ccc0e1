#include "tvctl/hashlists/hashlistsink.h"

#include "tvctl/hashlists/hashtype.h"

#include <algorithm>
#include <array>

namespace
{
constexpr std::string_view whiteSpace = " \t\n\r\v\f";

QString reasonAgainst(std::string_view text)
{
    if (text.empty()) {
        return QStringLiteral("the hash is missing");
    }
    if (!isHexadecimal(text)) {
        return QStringLiteral("not a hash");
    }
    switch (text.size()) {
    case 56:
        return QStringLiteral("SHA-224 is not supported");
    case 96:
        return QStringLiteral("SHA-384 is not supported");
    case 128:
        return QStringLiteral("SHA-512 is not supported");
    default:
        return QStringLiteral("%1 hexadecimal digits are no MD5, SHA-1 or SHA-256").arg(text.size());
    }
}

/// What a list wrote goes to a terminal in the end.
QString shown(std::string_view kind)
{
    constexpr std::size_t longest = 40;
    QString text;
    for (const char letter : kind.substr(0, longest)) {
        text.append(letter > ' ' && letter <= '~' ? QLatin1Char(letter) : QLatin1Char('?'));
    }
    return text;
}
} // namespace

std::string_view bareHash(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(whiteSpace);
    if (first == std::string_view::npos) {
        return {};
    }
    text = text.substr(first, text.find_last_not_of(whiteSpace) - first + 1);
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
    }
    return text;
}

void HashListSink::offer(std::string_view text, qint64 line)
{
    const std::string_view hash = bareHash(text);
    const auto type = hashTypeOf(hash);
    if (!type) {
        reject(line, reasonAgainst(hash));
        return;
    }
    std::array<char, 64> digits = {};
    std::transform(hash.begin(), hash.end(), digits.begin(),
                   [](char digit) { return digit >= 'A' && digit <= 'F' ? char(digit - 'A' + 'a') : digit; });
    accept({*type, {digits.data(), hash.size()}, line});
}

void HashListSink::rejectKind(std::string_view kind, qint64 line)
{
    reject(line, QStringLiteral("%1 is not supported").arg(shown(kind)));
}
