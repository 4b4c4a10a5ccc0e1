#include "tvctl/hashlists/hdbparser.h"

#include "tvctl/hashlists/hashlistsink.h"
#include "tvctl/hashlists/hashtype.h"
#include "tvctl/hashlists/linereader.h"

namespace
{
bool isSize(std::string_view text)
{
    return text == "*" || (!text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos);
}
} // namespace

QString HdbParser::parse(HashListInput& input, HashListSink& sink)
{
    LineReader lines(input);
    while (lines.next()) {
        const std::string_view line = lines.line();
        const std::size_t first = line.find(':');
        const std::size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
        if (second == std::string_view::npos) {
            sink.reject(lines.number(), QStringLiteral("not of the form hash:size:name"));
            continue;
        }
        const std::string_view hash = line.substr(0, first);
        const std::string_view size = line.substr(first + 1, second - first - 1);
        if (isSize(hash) && hashTypeOf(size)) {
            sink.reject(lines.number(), QStringLiteral("the hash of a section, not of a file"));
        } else if (!isSize(size)) {
            sink.reject(lines.number(), QStringLiteral("the size is neither a number nor *"));
        } else if (second + 1 == line.size()) {
            sink.reject(lines.number(), QStringLiteral("the name is missing"));
        } else {
            sink.offer(hash, lines.number());
        }
    }
    return {};
}
