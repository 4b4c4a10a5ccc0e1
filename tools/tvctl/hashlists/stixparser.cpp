#include "tvctl/hashlists/stixparser.h"

#include "tvctl/hashlists/hashlabel.h"
#include "tvctl/hashlists/hashlistsink.h"
#include "tvctl/hashlists/jsonstream.h"
#include "tvctl/hashlists/stixpattern.h"

#include <utility>

namespace
{
/// There are some ten functions.
constexpr std::size_t mostHashes = 64;
constexpr std::size_t longestWord = 64;
/// More than any digest that is hexadecimal.
constexpr std::size_t longestDigest = 256;
} // namespace

QString StixParser::parse(HashListInput& input, HashListSink& sink)
{
    m_sink = &sink;
    return readJson(input, *this);
}

void StixParser::objectBegins(std::string_view key)
{
    m_open.emplace_back();
    m_open.back().key = key;
}

void StixParser::member(std::string_view key, const JsonValue& value)
{
    if (m_open.empty()) {
        return;
    }
    Open& object = m_open.back();
    if (object.key == "hashes") {
        keepHash(key, value);
    } else if (key == "type") {
        object.type = value.text.substr(0, longestWord);
    } else if (key == "pattern_type") {
        object.patternType = value.text.substr(0, longestWord);
    } else if (key == "revoked") {
        object.isRevoked = value.isTrue;
    } else if (key == "pattern") {
        keepPattern(value);
    }
}

void StixParser::keepHash(std::string_view function, const JsonValue& value)
{
    if (m_open.size() < 2) {
        return;
    }
    Open& owner = m_open[m_open.size() - 2];
    if (owner.hashes.size() < mostHashes) {
        owner.hashes.push_back(
            {std::string(function), std::string(value.text.substr(0, longestDigest)), value.line});
    } else {
        m_sink->reject(value.line, QStringLiteral("too many hashes of one file"));
    }
}

void StixParser::keepPattern(const JsonValue& value)
{
    Open& object = m_open.back();
    m_patternSize -= object.pattern.size();
    object.pattern.clear();
    object.patternLine = value.line;
    // Patterns in patterns exist only where somebody is after the memory.
    object.isPatternCut = value.isCut || m_patternSize + value.text.size() > JsonStream::longestString + 4;
    if (!object.isPatternCut) {
        object.pattern = value.text;
        m_patternSize += value.text.size();
    }
}

void StixParser::objectEnds()
{
    const Open object = std::move(m_open.back());
    m_open.pop_back();
    m_patternSize -= object.pattern.size();
    if (object.type == "file") {
        judgeFile(object);
    } else if (object.type == "indicator" && object.patternLine > 0) {
        judgeIndicator(object);
    }
}

void StixParser::judgeFile(const Open& file)
{
    for (const Hash& hash : file.hashes) {
        if (hashLabelOf(hash.function) == HashLabel::FileHash) {
            m_sink->offer(hash.digits, hash.line);
        } else {
            m_sink->rejectKind(hash.function, hash.line);
        }
    }
}

void StixParser::judgeIndicator(const Open& indicator)
{
    if (!indicator.patternType.empty() && indicator.patternType != "stix") {
        m_sink->reject(indicator.patternLine,
                       QStringLiteral("the pattern is in another language than that of STIX"));
    } else if (indicator.isRevoked) {
        m_sink->reject(indicator.patternLine, QStringLiteral("the indicator is revoked"));
    } else if (indicator.isPatternCut) {
        m_sink->reject(indicator.patternLine, QStringLiteral("the pattern is too long"));
    } else {
        readStixPattern(indicator.pattern, indicator.patternLine, *m_sink);
    }
}
