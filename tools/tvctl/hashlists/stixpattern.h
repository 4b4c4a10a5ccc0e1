#pragma once

#include "tvctl/hashlists/hashlistsink.h"

/// Hands over the hashes of files that a STIX pattern asks for, in any of its observations and however they
/// are joined: `[file:hashes.'SHA-256' = '...' OR file:hashes.MD5 IN ('...', '...')]`.
///
/// Comparisons that are negated, or other than `=` and `IN`, are rejected, and so are hashes of other
/// functions or of anything else than a file. Every hash gets the line given. Pure.
void readStixPattern(std::string_view pattern, qint64 line, HashListSink& sink);
