#pragma once

#include "tvctl/hashlists/hashlistparser.h"
#include "tvctl/hashlists/jsonreader.h"

#include <string>
#include <vector>

/// Bundles of STIX 2.0 and 2.1: the patterns of indicators that are not revoked, and the hashes of file
/// objects, whether these stand by themselves or in observed data.
class StixParser : public HashListParser, private JsonListener
{
public:
    QString parse(HashListInput& input, HashListSink& sink) override;

private:
    struct Hash
    {
        std::string function;
        std::string digits;
        qint64 line = 0;
    };

    /// An object of which the end was not seen. What it means is known only then: its type may come last.
    struct Open
    {
        std::string key;
        std::string type;
        std::string patternType;
        std::string pattern;
        qint64 patternLine = 0;
        bool isPatternCut = false;
        bool isRevoked = false;
        std::vector<Hash> hashes;
    };

    void objectBegins(std::string_view key) override;
    void member(std::string_view key, const JsonValue& value) override;
    void objectEnds() override;

    void keepHash(std::string_view function, const JsonValue& value);
    void keepPattern(const JsonValue& value);
    void judgeFile(const Open& file);
    void judgeIndicator(const Open& indicator);

    HashListSink* m_sink = nullptr;
    std::vector<Open> m_open;
    /// Of all objects that are open.
    std::size_t m_patternSize = 0;
};
