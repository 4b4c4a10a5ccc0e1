#pragma once

#include "tvctl/hashlists/hashlistparser.h"

/// Lines of `hash;comment`. Nothing is taken out of a comment, whatever it looks like.
class LokiParser : public HashListParser
{
public:
    QString parse(HashListInput& input, HashListSink& sink) override;
};
