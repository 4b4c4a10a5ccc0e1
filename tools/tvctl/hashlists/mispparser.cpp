#include "tvctl/hashlists/mispparser.h"

#include "tvctl/hashlists/hashlabel.h"
#include "tvctl/hashlists/hashlistsink.h"

namespace
{
/// The longest path, and a hash behind it.
constexpr std::size_t longestValue = 8192;

/// Of "filename|md5" and its like, that what stands behind the bar.
std::string_view lastPart(std::string_view text)
{
    const std::size_t bar = text.rfind('|');
    return bar == std::string_view::npos ? text : text.substr(bar + 1);
}
} // namespace

QString MispParser::parse(HashListInput& input, HashListSink& sink)
{
    m_sink = &sink;
    return readJson(input, *this);
}

void MispParser::objectBegins(std::string_view key)
{
    m_open.emplace_back();
    m_open.back().isProposal = key == "ShadowAttribute";
}

void MispParser::member(std::string_view key, const JsonValue& value)
{
    if (m_open.empty()) {
        return;
    }
    Open& object = m_open.back();
    if (key == "type") {
        object.type = value.text.substr(0, 64);
    } else if (key == "value") {
        // One letter more than fits tells that it did not.
        object.value = value.text.substr(0, longestValue + 1);
        object.line = value.line;
    } else if (key == "to_ids") {
        object.isForDetection = value.isTrue;
    } else if (key == "deleted") {
        object.isDeleted = value.isTrue;
    }
}

void MispParser::objectEnds()
{
    const Open object = std::move(m_open.back());
    m_open.pop_back();
    if (object.line > 0 && !object.isProposal) {
        judge(object);
    }
}

void MispParser::judge(const Open& attribute)
{
    const std::string_view type = lastPart(attribute.type);
    const HashLabel label = type == "malware-sample" ? HashLabel::FileHash : hashLabelOf(type);
    if (label == HashLabel::Other) {
        m_sink->rejectKind(type, attribute.line);
    } else if (label != HashLabel::FileHash) {
        // An address, a name, a domain: no concern of hash lists.
        return;
    } else if (attribute.isDeleted) {
        m_sink->reject(attribute.line, QStringLiteral("deleted"));
    } else if (!attribute.isForDetection && m_take == Take::ForDetection) {
        m_sink->reject(attribute.line, QStringLiteral("not marked for detection (to_ids)"));
    } else if (attribute.value.size() > longestValue) {
        m_sink->reject(attribute.line, QStringLiteral("the value is too long"));
    } else {
        m_sink->offer(lastPart(attribute.value), attribute.line);
    }
}
