#pragma once

#include "platform/tvcore/iocscanconfig.h"

#include <QString>

#include <string_view>

/// Hashes of content that many sound files have, and that get into lists by mistake: nothing at all, and a
/// lone line end. Returns what the content is, for a reason; empty for any other hash. `digits` are in lower
/// case.
QString harmlessContentOf(IOCScanConfig::HASH_TYPE type, std::string_view digits);
