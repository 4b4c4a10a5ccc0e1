#pragma once

#include "tvctl/hashlists/hashlistparser.h"
#include "tvctl/hashlists/jsonreader.h"

#include <string>
#include <vector>

/// JSON of MISP: one event, several, or attributes alone, with attributes in objects too.
///
/// An attribute counts when its type is that of a hash and it is not deleted. Its `to_ids` says whether it is
/// good enough for detection; when it is missing, it is, which is MISP's own default for hashes. Proposals to
/// change an attribute are not taken.
class MispParser : public HashListParser, private JsonListener
{
public:
    enum class Take
    {
        ForDetection,
        /// Also what is not marked for detection.
        Everything
    };

    explicit MispParser(Take take) : m_take(take)
    {
    }

    QString parse(HashListInput& input, HashListSink& sink) override;

private:
    /// An object of which the end was not seen; any of them may be an attribute.
    struct Open
    {
        std::string type;
        std::string value;
        qint64 line = 0;
        bool isForDetection = true;
        bool isDeleted = false;
        bool isProposal = false;
    };

    void objectBegins(std::string_view key) override;
    void member(std::string_view key, const JsonValue& value) override;
    void objectEnds() override;
    void judge(const Open& attribute);

    const Take m_take;
    HashListSink* m_sink = nullptr;
    std::vector<Open> m_open;
};
