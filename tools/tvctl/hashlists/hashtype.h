#pragma once

#include "platform/tvcore/iocscanconfig.h"

#include <QString>

#include <optional>
#include <string_view>

/// Which of the lists a hash belongs to, told by its length alone: 32, 40 or 64 hexadecimal digits of either
/// case. Nothing for any other text. Pure.
std::optional<IOCScanConfig::HASH_TYPE> hashTypeOf(const QString& hash);
std::optional<IOCScanConfig::HASH_TYPE> hashTypeOf(std::string_view hash);

/// True for text of hexadecimal digits of either case, at least one.
bool isHexadecimal(std::string_view text);
