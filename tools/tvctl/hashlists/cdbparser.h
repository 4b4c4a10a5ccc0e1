#pragma once

#include "tvctl/hashlists/hashlistparser.h"

/// Lists of keys and values as host intrusion detection systems keep them, the files *.cdb before they are
/// compiled: `hash:`, `hash:text` or `hash`, the key in quotes or without.
///
/// ClamAV has files of the same name, which tell a member of an archive by its name, size and checksum. They
/// hold no hash of a file, and each of their lines is rejected with that reason.
class CdbParser : public HashListParser
{
public:
    QString parse(HashListInput& input, HashListSink& sink) override;
};

/// True for a line of ClamAV's format, and false for keys and values.
bool isContainerSignature(std::string_view line);
