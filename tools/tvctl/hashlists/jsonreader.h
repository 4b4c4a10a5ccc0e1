#pragma once

#include <QString>

#include <string_view>

class HashListInput;

/// A value that is neither an object nor an array.
struct JsonValue
{
    /// Empty unless the value is a string. Valid only while it is handed over.
    std::string_view text;
    /// true, a number other than 0, or one of both written as a string, as older programs do.
    bool isTrue = false;
    /// The text is only the beginning of a very long string.
    bool isCut = false;
    /// Where the value stands, from 1 on.
    qint64 line = 0;
};

/// Is told what stands in a JSON text, in its order. Arrays are not told: each of their elements comes as if
/// it were the member whose value the array is. What has no key has an empty one.
class JsonListener
{
public:
    JsonListener() = default;
    JsonListener(const JsonListener&) = delete;
    JsonListener& operator=(const JsonListener&) = delete;
    virtual ~JsonListener() = default;

    virtual void objectBegins(std::string_view key) = 0;
    virtual void member(std::string_view key, const JsonValue& value) = 0;
    virtual void objectEnds() = 0;
};

/// Reads a JSON text, or several one behind the other, in memory of constant size. Returns what is wrong with
/// it, and where; empty when it was read to its end. Objects that begin need not end then.
QString readJson(HashListInput& input, JsonListener& listener);
