#include "tvctl/hashlists/hashlabel.h"

#include <algorithm>
#include <array>
#include <string>

namespace
{
/// Longer names are sentences.
constexpr std::size_t longestName = 48;

constexpr std::array<std::string_view, 30> otherParts = {
    "imphash", "impfuzzy",   "pehash",      "richhash",    "richpe",       "authentihash",
    "ssdeep",  "tlsh",       "telfhash",    "symhash",     "ja3",          "ja4",
    "hassh",   "cdhash",     "thumbprint",  "fingerprint", "certificate",  "x509",
    "sha512",  "sha384",     "sha224",      "sha3",        "authenticode", "parent",
    "section", "importhash", "importtable", "sdhash",      "blake",        "ripemd"};
// These also end other words ("dropped hash").
constexpr std::array<std::string_view, 14> otherNames = {"dhash", "vhash", "crc",          "crc32",  "jarm",
                                                         "uuid",  "guid",  "serialnumber", "serial", "cert",
                                                         "md4",   "md2",   "adler32",      "ntlm"};
constexpr std::array<std::string_view, 3> fileParts = {"md5", "sha1", "sha256"};
constexpr std::array<std::string_view, 18> indicatorNames = {
    "hash",           "hashes",     "filehash",        "filehashes", "hashvalue", "filehashvalue",
    "indicator",      "indicators", "value",           "ioc",        "iocs",      "iocvalue",
    "indicatorvalue", "observable", "observablevalue", "checksum",   "digest",    "hashsum"};
constexpr std::array<std::string_view, 9> typeNames = {"type",     "indicatortype",  "ioctype",
                                                       "hashtype", "hashalgorithm",  "algorithm",
                                                       "algo",     "observabletype", "kind"};

template <std::size_t size>
bool isOneOf(const std::array<std::string_view, size>& names, std::string_view name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

template <std::size_t size>
bool holdsOneOf(const std::array<std::string_view, size>& parts, std::string_view name)
{
    return std::any_of(parts.begin(), parts.end(),
                       [name](std::string_view part) { return name.find(part) != std::string_view::npos; });
}
} // namespace

HashLabel hashLabelOf(std::string_view name)
{
    std::string plain;
    for (const char letter : name.substr(0, 2 * longestName)) {
        if (letter >= 'A' && letter <= 'Z') {
            plain += static_cast<char>(letter - 'A' + 'a');
        } else if ((letter >= 'a' && letter <= 'z') || (letter >= '0' && letter <= '9')) {
            plain += letter;
        }
    }
    if (plain.size() > longestName) {
        return HashLabel::None;
    }
    if (holdsOneOf(otherParts, plain) || isOneOf(otherNames, plain)) {
        return HashLabel::Other;
    }
    if (holdsOneOf(fileParts, plain)) {
        return HashLabel::FileHash;
    }
    if (isOneOf(indicatorNames, plain)) {
        return HashLabel::Indicator;
    }
    return isOneOf(typeNames, plain) ? HashLabel::Type : HashLabel::None;
}
