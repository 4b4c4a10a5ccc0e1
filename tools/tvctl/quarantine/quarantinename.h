#pragma once

#include <QByteArray>
#include <QVector>
#include <QtGlobal>

#include <optional>

/// The name that the service gives a quarantine copy: when it was made, by the local clock, and the MD5 of
/// the bytes of the original's path: "2025-03-28_13-02-59_" + 32 hexadecimal digits + ".tvq". Nothing else in
/// the quarantine is a copy.
///
/// A plain value; pure, except that the moments depend on the local time zone.
class QuarantineName
{
public:
    /// Nothing when `name` is no such name to the byte, or tells a date or a time that is none.
    static std::optional<QuarantineName> parse(const QByteArray& name);

    /// True for the name under which a copy grows: that of the copy, a process number and ".tvq" again. It
    /// is left behind only when the service was killed meanwhile.
    static bool isPassing(const QByteArray& name);

    const QByteArray& pathDigest() const
    {
        return m_pathDigest;
    }

    /// The moments that the name may mean, in seconds since 1970, earliest first: two where clocks were put
    /// back and showed the hour twice. Never empty: for a time that clocks left out, as after a change of the
    /// time zone, it is the one that would have been.
    QVector<qint64> moments() const;

private:
    /// What the local clock showed, as if it had shown UTC.
    qint64 m_clock = 0;
    QByteArray m_pathDigest;
};
