#include "platform/tvnotify/popupexpiry.h"

#include <QDate>
#include <QTime>

#include <array>
#include <cstddef>
#include <ctime>

namespace
{
constexpr QLatin1String form("0000-00-00 00:00:00");
using Numbers = std::array<int, 6>;

/// The numbers of a text that has digits where `form` has zeros.
std::optional<Numbers> numbersOf(const QString& text)
{
    if (text.size() != form.size()) {
        return std::nullopt;
    }
    Numbers numbers = {};
    std::size_t number = 0;
    for (int i = 0; i < form.size(); ++i) {
        const ushort character = text[i].unicode();
        if (form[i] != QLatin1Char('0')) {
            if (character != form[i].unicode()) {
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
    return millisecondsOfASecond * std::mktime(&parts);
}
