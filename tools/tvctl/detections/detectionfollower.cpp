#include "tvctl/detections/detectionfollower.h"

#include "platform/tvcore/virusconfig.h"
#include "tvctl/installation/storeaccess.h"

#include <limits>

namespace
{
constexpr int pageSize = 1000;
} // namespace

QVector<VirusReport> DetectionFollower::next()
{
    // From the last record on and not from behind it, to see whether it is still the same.
    QVector<VirusReport> page;
    const qint64 afterId = m_last.number() - 1;
    bool isRead = VirusConfig().getVirusReports({}, {}, page, qMax<qint64>(afterId, 0), pageSize);
    if (isRead && m_last.number() > 0) {
        const bool isSame = isSameStore(page, isRead);
        if (isRead && !isSame) {
            m_notices << QStringLiteral("the detection records were begun anew; going on from their start");
            m_last = {};
            isRead = VirusConfig().getVirusReports({}, {}, page, 0, pageSize);
        }
    }
    if (!isRead) {
        noteUnreadable();
        return {};
    }
    if (!m_isReadable) {
        m_isReadable = true;
        m_notices << QStringLiteral("the detection records can be read again");
    }
    if (!page.isEmpty() && page.constFirst().getId() == m_last.number()) {
        page.removeFirst();
    }
    if (!page.isEmpty()) {
        m_last = DetectionId(page.constLast());
    }
    return page;
}

QStringList DetectionFollower::takeNotices()
{
    const QString message = StoreAccess::takeMessage();
    if (!message.isEmpty()) {
        m_notices << message;
    }
    QStringList notices;
    notices.swap(m_notices);
    return notices;
}

bool DetectionFollower::isSameStore(const QVector<VirusReport>& page, bool& isKnown) const
{
    if (!page.isEmpty() && page.constFirst().getId() == m_last.number()) {
        return m_last.isOf(page.constFirst());
    }
    // It was removed, or this is a store that has not got so far. An empty one will show.
    QVector<VirusReport> newest;
    isKnown = VirusConfig().getLastVirusReports({}, {}, newest, std::numeric_limits<qint64>::max(), 1);
    return newest.isEmpty() || newest.constFirst().getId() >= m_last.number();
}

void DetectionFollower::noteUnreadable()
{
    if (m_isReadable) {
        m_isReadable = false;
        const QString reason = StoreAccess::takeMessage();
        m_notices << QStringLiteral("the detection records cannot be read now%1; trying again until they can")
                         .arg(reason.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(reason));
    }
}
