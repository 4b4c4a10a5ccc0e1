#include "tvctl/hashlists/hashlistimport.h"

#include "tvctl/hashlists/cdbparser.h"
#include "tvctl/hashlists/csvparser.h"
#include "tvctl/hashlists/hashlistdetector.h"
#include "tvctl/hashlists/hdbparser.h"
#include "tvctl/hashlists/lokiparser.h"
#include "tvctl/hashlists/openiocparser.h"
#include "tvctl/hashlists/plainparser.h"
#include "tvctl/hashlists/stixparser.h"

#include <memory>

namespace
{
std::unique_ptr<HashListParser> parserFor(HashListFormat format, const HashListOptions& options)
{
    switch (format) {
    case HashListFormat::Csv:
        return std::make_unique<CsvParser>();
    case HashListFormat::Loki:
        return std::make_unique<LokiParser>();
    case HashListFormat::Hdb:
        return std::make_unique<HdbParser>();
    case HashListFormat::Cdb:
        return std::make_unique<CdbParser>();
    case HashListFormat::Misp:
        return std::make_unique<MispParser>(options.misp);
    case HashListFormat::Stix:
        return std::make_unique<StixParser>();
    case HashListFormat::OpenIoc:
        return std::make_unique<OpenIocParser>();
    case HashListFormat::Plain:
        break;
    }
    return std::make_unique<PlainParser>();
}
} // namespace

HashListResult readHashList(QIODevice& device, const QString& fileName, const HashListOptions& options,
                            HashListSink& sink, const HashListInput::Progress& progress)
{
    HashListInput input(device, progress);
    const std::string_view beginning = input.beginning();
    DetectedFormat detected = {options.format, {}};
    // What cannot be read at all has no format either.
    if (!detected.format && !(beginning.empty() && !input.error().isEmpty())) {
        detected = detectHashListFormat(beginning, fileName);
    }
    QString problem = detected.problem;
    if (detected.format && !input.isCancelled()) {
        problem = parserFor(*detected.format, options)->parse(input, sink);
    }
    // A list that breaks off is broken for its format too; the reason is the better answer.
    const QString error = input.error().isEmpty() ? problem : input.error();
    return {detected.format, input.isCancelled() ? QString() : error, input.isCancelled()};
}
