#pragma once

#include <chrono>
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
    /// By `popupClock`; none when the server decides.
    std::optional<std::int64_t> closeAt;
};

/// Milliseconds of the clock that nobody sets, which is the same in every process: a popup must not stay for
/// an hour because the time of day was set back while it waited.
inline std::int64_t popupClock()
{
    const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(sinceStart).count();
}
