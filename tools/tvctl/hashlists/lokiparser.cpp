#include "tvctl/hashlists/lokiparser.h"

#include "tvctl/hashlists/hashlistsink.h"
#include "tvctl/hashlists/linereader.h"

QString LokiParser::parse(HashListInput& input, HashListSink& sink)
{
    LineReader lines(input);
    while (lines.next()) {
        const std::string_view line = lines.line();
        sink.offer(line.substr(0, line.find(';')), lines.number());
    }
    return {};
}
