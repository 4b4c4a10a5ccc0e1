#include "tvctl/hashlists/jsonreader.h"

#include "tvctl/hashlists/jsonstream.h"

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <string>
#include <vector>

namespace
{
/// The library calls itself for each level. Events and bundles have about ten.
constexpr std::size_t deepest = 100;
/// No key that anybody looks for is as long. What is longer differs from all of them in this as well.
constexpr std::size_t longestKey = 64;

/// What the library calls with each thing that it has read; false ends the reading.
class Events : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Events>
{
public:
    Events(const JsonStream& stream, JsonListener& listener) : m_stream(stream), m_listener(listener)
    {
    }

    bool Null()
    {
        return value({});
    }
    bool Bool(bool isTrue)
    {
        return value({{}, isTrue, false, 0});
    }
    bool Int(int number)
    {
        return value({{}, number != 0, false, 0});
    }
    bool Uint(unsigned number)
    {
        return value({{}, number != 0, false, 0});
    }
    bool Int64(int64_t number)
    {
        return value({{}, number != 0, false, 0});
    }
    bool Uint64(uint64_t number)
    {
        return value({{}, number != 0, false, 0});
    }
    bool Double(double number)
    {
        return value({{}, number != 0.0, false, 0});
    }
    bool String(const char* letters, rapidjson::SizeType size, bool)
    {
        const std::string_view text(letters, size);
        const bool isTrue = text == "1" || text == "true" || text == "True";
        return value({text, isTrue, m_stream.isCut(), 0});
    }
    bool Key(const char* letters, rapidjson::SizeType size, bool)
    {
        m_keys.back().assign(letters, std::min<std::size_t>(size, longestKey));
        return true;
    }
    bool StartObject()
    {
        m_listener.objectBegins(key());
        return descend({});
    }
    bool EndObject(rapidjson::SizeType)
    {
        m_keys.pop_back();
        m_listener.objectEnds();
        return true;
    }
    bool StartArray()
    {
        return descend(std::string(key()));
    }
    bool EndArray(rapidjson::SizeType)
    {
        m_keys.pop_back();
        return true;
    }

    bool isTooDeep() const
    {
        return m_keys.size() > deepest;
    }

private:
    std::string_view key() const
    {
        return m_keys.empty() ? std::string_view() : m_keys.back();
    }
    bool descend(std::string key)
    {
        m_keys.push_back(std::move(key));
        return !isTooDeep();
    }
    bool value(JsonValue value)
    {
        value.line = m_stream.line();
        m_listener.member(key(), value);
        return true;
    }

    const JsonStream& m_stream;
    JsonListener& m_listener;
    /// The key of the value that comes next, for each object and array that is open.
    std::vector<std::string> m_keys;
};

void skipBlanks(JsonStream& stream)
{
    while (stream.Peek() == ' ' || stream.Peek() == '\n' || stream.Peek() == '\t') {
        stream.Take();
    }
}
} // namespace

QString readJson(HashListInput& input, JsonListener& listener)
{
    JsonStream stream(input);
    rapidjson::Reader reader;
    do {
        Events events(stream, listener);
        // Numbers are only compared with 0, so that they need not be exact to the last bit.
        const rapidjson::ParseResult result = reader.Parse<rapidjson::kParseStopWhenDoneFlag>(stream, events);
        if (result.IsError()) {
            const QString problem = events.isTooDeep()    ? QStringLiteral("it is nested too deep")
                                    : stream.isOverlong() ? QStringLiteral("a string is too long")
                                    : stream.Peek() == 0
                                        ? QStringLiteral("it ends too early")
                                        : QString::fromLatin1(rapidjson::GetParseError_En(result.Code()));
            return QStringLiteral("line %1: %2").arg(stream.line()).arg(problem);
        }
        skipBlanks(stream);
    } while (stream.Peek() != '\0');
    return {};
}
