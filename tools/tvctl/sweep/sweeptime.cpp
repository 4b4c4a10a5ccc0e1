#include "tvctl/sweep/sweeptime.h"

#include <QFile>

#include <algorithm>
#include <ctime>

namespace
{
/// The kernel dates files by a clock that ticks every few ms only, and some file systems keep whole seconds.
constexpr qint64 marginMs = 2000;

qint64 msecsOf(clockid_t clock)
{
    constexpr qint64 msecsPerSecond = 1000;
    constexpr qint64 nsecsPerMsec = 1000000;
    struct timespec time = {};
    ::clock_gettime(clock, &time);
    return time.tv_sec * msecsPerSecond + time.tv_nsec / nsecsPerMsec;
}
} // namespace

SweepTime SweepTime::now()
{
    QFile bootId(QStringLiteral("/proc/sys/kernel/random/boot_id"));
    const bool isOpen = bootId.open(QIODevice::ReadOnly);
    return {msecsOf(CLOCK_REALTIME), msecsOf(CLOCK_BOOTTIME),
            isOpen ? bootId.readAll().trimmed() : QByteArray()};
}

QDataStream& operator<<(QDataStream& stream, const SweepTime& time)
{
    return stream << time.msecsSinceEpoch << time.msecsSinceBoot << time.bootId;
}

QDataStream& operator>>(QDataStream& stream, SweepTime& time)
{
    return stream >> time.msecsSinceEpoch >> time.msecsSinceBoot >> time.bootId;
}

std::optional<qint64> changedSince(const SweepTime& last, const SweepTime& now)
{
    qint64 since = last.msecsSinceEpoch;
    if (!last.bootId.isEmpty() && last.bootId == now.bootId) {
        // By the clock of today.
        since = std::min(since, now.msecsSinceEpoch - (now.msecsSinceBoot - last.msecsSinceBoot));
    } else if (now.msecsSinceEpoch < last.msecsSinceEpoch) {
        return std::nullopt;
    }
    return since - marginMs;
}
