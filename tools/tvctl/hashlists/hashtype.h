#pragma once

#include "platform/tvcore/iocscanconfig.h"

#include <QString>

#include <optional>

/// Which of the lists a hash belongs to, told by its length alone: 32, 40 or 64 hexadecimal digits of either
/// case. Nothing for any other text. Pure.
std::optional<IOCScanConfig::HASH_TYPE> hashTypeOf(const QString& hash);
