#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// One popup as it goes to a notification server. Every text is UTF-8 that a D-Bus message can carry.
struct Popup
{
    std::string appName;
    /// Absolute path of a picture, or empty.
    std::string iconPath;
    /// Plain text.
    std::string summary;
    /// Well-formed markup of the notification servers' kind.
    std::string body;
    /// Milliseconds since 1970; none when the server decides.
    std::optional<std::int64_t> closeAt;
};
