#pragma once

#include <chrono>
#include <ctime>
#include <string>

/// A moment as the clocks of the local time zone show it.
///
/// The system's time zone may be changed while the service runs, so it is looked at once for each moment.
/// QDateTime does that several times for each of its conversions, of which a text takes a few. Reentrant.
class LocalTime
{
public:
    static LocalTime now();
    /// That much later than now.
    static LocalTime after(std::chrono::seconds delay);
    explicit LocalTime(std::chrono::system_clock::time_point moment);

    /// "2025-03-28 13:02:59", in every locale.
    std::string text() const;
    /// The same for the name of a file, "2025-03-28_13-02-59".
    std::string name() const;
    /// Of the second that has begun.
    int milliseconds() const
    {
        return m_milliseconds;
    }

private:
    std::tm m_parts = {};
    int m_milliseconds;
};
