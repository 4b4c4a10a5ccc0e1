#include "common/localtime.h"

#include <array>
#include <cstddef>

namespace
{
/// Also for a year of ten digits.
constexpr std::size_t textSize = 32;
} // namespace

LocalTime LocalTime::now()
{
    return after(std::chrono::seconds(0));
}

LocalTime LocalTime::after(std::chrono::seconds delay)
{
    return LocalTime(std::chrono::system_clock::now() + delay);
}

LocalTime::LocalTime(std::chrono::system_clock::time_point moment)
{
    using Milliseconds = std::chrono::milliseconds;
    // Down, also before 1970.
    const auto second = std::chrono::floor<std::chrono::seconds>(moment);
    m_milliseconds = static_cast<int>(std::chrono::floor<Milliseconds>(moment - second).count());
    const std::time_t seconds = std::chrono::system_clock::to_time_t(second);
    // localtime_r would go on with the time zone that it found at first.
    ::tzset();
    ::localtime_r(&seconds, &m_parts);
}

std::string LocalTime::text() const
{
    std::array<char, textSize> text;
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &m_parts)};
}

std::string LocalTime::name() const
{
    std::array<char, textSize> text;
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d_%H-%M-%S", &m_parts)};
}
