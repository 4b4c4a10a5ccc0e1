#include "tvctl/quarantine/quarantinename.h"

#include <QDate>
#include <QDateTime>
#include <QRegularExpression>
#include <QTime>

#include <ctime>

namespace
{
const char* const copyPattern = "([0-9]{4})-([0-9]{2})-([0-9]{2})_([0-9]{2})-([0-9]{2})-([0-9]{2})_"
                                "([0-9a-f]{32})\\.tvq";
constexpr int copyLength = 56;
constexpr qint64 day = 24 * 60 * 60;

qint64 offsetAt(qint64 moment)
{
    const auto seconds = static_cast<time_t>(moment);
    tm local = {};
    return ::localtime_r(&seconds, &local) == nullptr ? 0 : local.tm_gmtoff;
}
} // namespace

std::optional<QuarantineName> QuarantineName::parse(const QByteArray& name)
{
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QString::fromLatin1(copyPattern)));
    if (name.size() != copyLength) {
        return std::nullopt;
    }
    const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(name));
    const auto number = [&match](int group) {
        return match.capturedRef(group).toInt();
    };
    const QDate date(number(1), number(2), number(3));
    const QTime time(number(4), number(5), number(6));
    if (!match.hasMatch() || !date.isValid() || !time.isValid()) {
        return std::nullopt;
    }
    QuarantineName parsed;
    parsed.m_clock = QDateTime(date, time, Qt::UTC).toSecsSinceEpoch();
    parsed.m_pathDigest = match.captured(7).toLatin1();
    return parsed;
}

bool QuarantineName::isPassing(const QByteArray& name)
{
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("\\.[1-9][0-9]{0,9}\\.tvq")));
    return parse(name.left(copyLength)) &&
           pattern.match(QString::fromLatin1(name.mid(copyLength))).hasMatch();
}

QVector<qint64> QuarantineName::moments() const
{
    // No time zone changes its clocks twice within two days, so these are the only offsets in question.
    QVector<qint64> found;
    for (const qint64 offset : {offsetAt(m_clock - day), offsetAt(m_clock + day)}) {
        const qint64 moment = m_clock - offset;
        if (offsetAt(moment) == offset && !found.contains(moment)) {
            found.append(moment);
        }
    }
    return found.isEmpty() ? QVector<qint64>{m_clock - offsetAt(m_clock - day)} : found;
}
