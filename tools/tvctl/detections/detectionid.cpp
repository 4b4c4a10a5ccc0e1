#include "tvctl/detections/detectionid.h"

#include <QRegularExpression>

namespace
{
/// 0 stands for a record without a valid time.
qint64 millisecondsOf(const VirusReport& report)
{
    const QDateTime time = report.getDateTime();
    return time.isValid() ? time.toMSecsSinceEpoch() : 0;
}
} // namespace

DetectionId::DetectionId(const VirusReport& report) : m_number(report.getId()), m_time(millisecondsOf(report))
{
}

std::optional<DetectionId> DetectionId::parse(const QString& text)
{
    // At most 18 digits: it stays in its range. A time before 1970 is negative.
    static const QRegularExpression pattern(QStringLiteral("^([0-9]{1,18})(?:-(-?[0-9]{1,18}))?\\z"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    DetectionId id;
    id.m_number = match.captured(1).toLongLong();
    if (match.lastCapturedIndex() == 2) {
        id.m_time = match.captured(2).toLongLong();
    }
    return id;
}

QString DetectionId::text() const
{
    const QString number = QString::number(m_number);
    return m_time ? number + QLatin1Char('-') + QString::number(*m_time) : number;
}

bool DetectionId::isOf(const VirusReport& report) const
{
    return report.getId() == m_number && (!m_time || *m_time == millisecondsOf(report));
}
