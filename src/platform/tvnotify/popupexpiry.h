#pragma once

#include <QString>

#include <cstdint>
#include <optional>

/// The moment that `timeStamp` ("yyyy-MM-dd hh:mm:ss", local time, ASCII digits in every locale) names, in
/// milliseconds since 1970; none for any other text.
std::optional<std::int64_t> popupCloseTime(const QString& timeStamp);
