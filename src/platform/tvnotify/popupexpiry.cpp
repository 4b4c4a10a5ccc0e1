#include "platform/tvnotify/popupexpiry.h"

#include <QDate>
#include <QTime>

#include <array>
#include <cstddef>
#include <ctime>
#include <string_view>

namespace
{
constexpr std::string_view form = "0000-00-00 00:00:00";
using Numbers = std::array<int, 6>;

/// The numbers of a text that has digits where `form` has zeros.
std::optional<Numbers> numbersOf(const QString& text)
{
    if (text.size() != static_cast<int>(form.size())) {
        return std::nullopt;
    }
    Numbers numbers = {};
    std::size_t number = 0;
    for (std::size_t i = 0; i < form.size(); ++i) {
        const ushort character = text[static_cast<int>(i)].unicode();
        if (form[i] != '0') {
            if (character != form[i]) {
                return std::nullopt;
            }
            ++number;
        } else if (character < '0' || character > '9') {
            return std::nullopt;
        } else {
            numbers[number] = numbers[number] * 10 + character - '0';
        }
    }
    return numbers;
}
} // namespace

std::optional<std::int64_t> popupCloseTime(const QString& timeStamp)
{
    // Qt's reader of dates takes longer than all else that is done for a popup.
    const std::optional<Numbers> numbers = numbersOf(timeStamp);
    if (!numbers) {
        return std::nullopt;
    }
    const auto [year, month, day, hour, minute, second] = *numbers;
    if (!QDate::isValid(year, month, day) || !QTime::isValid(hour, minute, second)) {
        return std::nullopt;
    }
    std::tm parts = {};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    constexpr std::int64_t millisecondsOfASecond = 1000;
    const std::int64_t time = millisecondsOfASecond * std::mktime(&parts);
    // Else the clocks are set forward over it, and it is the time of another text that was found.
    const bool exists = parts.tm_hour == hour && parts.tm_min == minute;
    return exists ? std::optional(time) : std::nullopt;
}
