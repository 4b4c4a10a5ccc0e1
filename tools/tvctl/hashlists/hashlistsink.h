#pragma once

#include "platform/tvcore/iocscanconfig.h"

#include <QString>

#include <string_view>

/// A hash that a list names as that of a bad file.
struct HashIndicator
{
    IOCScanConfig::HASH_TYPE type;
    /// Lower case. Valid only while it is handed over.
    std::string_view digits;
    /// Where it stands in the list, from 1 on.
    qint64 line;
};

/// Takes what a parser finds in a list, in the list's order.
class HashListSink
{
public:
    HashListSink() = default;
    HashListSink(const HashListSink&) = delete;
    HashListSink& operator=(const HashListSink&) = delete;
    virtual ~HashListSink() = default;

    virtual void accept(const HashIndicator& indicator) = 0;
    /// Something stands there that looks like an indicator, or should be one, and is not taken.
    virtual void reject(qint64 line, const QString& reason) = 0;

    /// Accepts `text` when it is a hash as a whole, and rejects it otherwise. White space around it and a
    /// leading "0x" do not count.
    void offer(std::string_view text, qint64 line);
    /// Rejects a hash, or what is nearly one, of a kind that no list here holds.
    void rejectKind(std::string_view kind, qint64 line);
};

/// `text` without the white space around it and without a leading "0x".
std::string_view bareHash(std::string_view text);
