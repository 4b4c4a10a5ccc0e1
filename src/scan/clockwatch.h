#pragma once

#include <chrono>

/// Tells whether the time of day was set forward since this was made, or the machine slept.
///
/// libclamav looks at the time of day for how long a scan has taken: an hour's step ends the scan, with the
/// answer that the file is clean.
class ClockWatch
{
public:
    ClockWatch() : m_began(std::chrono::steady_clock::now()), m_ahead(ahead())
    {
    }

    bool isSetForward() const
    {
        // More than any correction of a clock that keeps going, less than what could end a scan.
        constexpr std::chrono::seconds step(1);
        return ahead() - m_ahead >= step;
    }

    /// Since this was made, whatever the time of day says.
    std::chrono::nanoseconds elapsed() const
    {
        return std::chrono::steady_clock::now() - m_began;
    }

private:
    /// By how much the time of day is ahead of the clock that nobody sets.
    static std::chrono::nanoseconds ahead()
    {
        return std::chrono::system_clock::now().time_since_epoch() -
               std::chrono::steady_clock::now().time_since_epoch();
    }

    std::chrono::steady_clock::time_point m_began;
    std::chrono::nanoseconds m_ahead;
};
