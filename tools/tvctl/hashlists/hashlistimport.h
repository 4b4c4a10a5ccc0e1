#pragma once

#include "tvctl/hashlists/hashlistformat.h"
#include "tvctl/hashlists/hashlistinput.h"
#include "tvctl/hashlists/mispparser.h"

class HashListSink;

struct HashListOptions
{
    /// Nothing: told by the content, and in doubt by the name.
    std::optional<HashListFormat> format;
    MispParser::Take misp = MispParser::Take::ForDetection;
};

struct HashListResult
{
    /// How the list was read; nothing when it could not be told.
    std::optional<HashListFormat> format;
    /// Why the list was not read to its end; empty when it was. What came before is handed over all the same.
    QString error;
    /// The progress callback has ended the reading.
    bool isCancelled = false;
};

/// Reads a list from an open device, on the caller's thread, in memory of constant size, and hands what it
/// holds to the sink. The name serves for nothing but telling the format.
HashListResult readHashList(QIODevice& device, const QString& fileName, const HashListOptions& options,
                            HashListSink& sink, const HashListInput::Progress& progress = {});
