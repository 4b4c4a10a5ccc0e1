#pragma once

#include "tvctl/hashlists/hashlistparser.h"

/// One hash a line, or several, among other text or without.
///
/// A line that begins with '#', ';' or "//" is a comment, and so is the rest of a line from a '#' or "//" on
/// that follows a blank: what was commented out is not meant to be found.
class PlainParser : public HashListParser
{
public:
    QString parse(HashListInput& input, HashListSink& sink) override;
};
