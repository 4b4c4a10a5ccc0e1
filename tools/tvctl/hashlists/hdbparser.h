#pragma once

#include "tvctl/hashlists/hashlistparser.h"

/// Hash signatures of ClamAV, the files *.hdb and *.hsb: `hash:size:name`, with numbers behind it or without.
/// The size may be '*'.
class HdbParser : public HashListParser
{
public:
    QString parse(HashListInput& input, HashListSink& sink) override;
};
