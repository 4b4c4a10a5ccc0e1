#pragma once

#include <QString>

class HashListInput;
class HashListSink;

/// Reads a list in one format. One object reads one list.
///
/// Needs memory of constant size, whatever the list holds: an overlong value is left out and rejected.
class HashListParser
{
public:
    HashListParser() = default;
    HashListParser(const HashListParser&) = delete;
    HashListParser& operator=(const HashListParser&) = delete;
    virtual ~HashListParser() = default;

    /// Reads to the end and hands over what it finds on the way. Returns what is wrong with the list as a
    /// whole, so that the rest of it could not be read; empty when it was read to its end.
    virtual QString parse(HashListInput& input, HashListSink& sink) = 0;
};
