#include "tvctl/hashlists/hashtype.h"

#include <QByteArray>

#include <algorithm>

namespace
{
bool isHexDigit(char digit)
{
    return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f') || (digit >= 'A' && digit <= 'F');
}
} // namespace

bool isHexadecimal(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), isHexDigit);
}

std::optional<IOCScanConfig::HASH_TYPE> hashTypeOf(std::string_view hash)
{
    if (!isHexadecimal(hash)) {
        return std::nullopt;
    }
    switch (hash.size()) {
    case 32:
        return IOCScanConfig::MD5;
    case 40:
        return IOCScanConfig::SHA1;
    case 64:
        return IOCScanConfig::SHA256;
    default:
        return std::nullopt;
    }
}

std::optional<IOCScanConfig::HASH_TYPE> hashTypeOf(const QString& hash)
{
    // Any character beyond ASCII takes a byte that is no digit.
    const QByteArray bytes = hash.toUtf8();
    return hashTypeOf(std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())));
}
