#include "tvctl/hashlists/hashtype.h"

#include <algorithm>

namespace
{
bool isHexDigit(QChar digit)
{
    const ushort code = digit.unicode();
    return (code >= '0' && code <= '9') || (code >= 'a' && code <= 'f') || (code >= 'A' && code <= 'F');
}
} // namespace

std::optional<IOCScanConfig::HASH_TYPE> hashTypeOf(const QString& hash)
{
    if (!std::all_of(hash.begin(), hash.end(), isHexDigit)) {
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
