#include "tvctl/hashlists/cdbparser.h"

#include "tvctl/hashlists/hashlistsink.h"
#include "tvctl/hashlists/linereader.h"

#include <algorithm>

namespace
{
std::string_view withoutQuotes(std::string_view key)
{
    const bool isQuoted = key.size() >= 2 && key.front() == '"' && key.back() == '"';
    return isQuoted ? key.substr(1, key.size() - 2) : key;
}
} // namespace

bool isContainerSignature(std::string_view line)
{
    // Name:ContainerType:ContainerSize:FileName:FileSizeInContainer:FileSizeReal:IsEncrypted:FilePos:Res1:Res2,
    // where the type is '*' or begins like this.
    constexpr std::ptrdiff_t separators = 9;
    const std::size_t first = line.find(':');
    if (first == std::string_view::npos || std::count(line.begin(), line.end(), ':') < separators) {
        return false;
    }
    const std::string_view type = line.substr(first + 1, line.find(':', first + 1) - first - 1);
    return type == "*" || type.substr(0, 8) == "CL_TYPE_";
}

QString CdbParser::parse(HashListInput& input, HashListSink& sink)
{
    LineReader lines(input);
    while (lines.next()) {
        const std::string_view line = lines.line();
        if (isContainerSignature(line)) {
            sink.reject(lines.number(),
                        QStringLiteral("a signature of an archive's member, which holds no hash of a file"));
        } else {
            sink.offer(withoutQuotes(bareHash(line.substr(0, line.find(':')))), lines.number());
        }
    }
    return {};
}
