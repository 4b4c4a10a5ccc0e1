#include "tvctl/detections/detectionreader.h"

#include "platform/tvcore/virusconfig.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/installation/storeaccess.h"

#include <algorithm>
#include <limits>

namespace
{
/// Explains why reading failed just now. It may have been a lock that is gone again.
[[noreturn]] void fail(const Installation& installation)
{
    StoreAccess::requireReports(installation);
    throw ToolError(QStringLiteral("the detection records could not be read to the end; try again"));
}
} // namespace

DetectionReader::DetectionReader(const Installation& installation, const QDateTime& from, const QDateTime& to)
    : m_installation(installation),
      m_from(from),
      m_to(to)
{
}

QVector<VirusReport> DetectionReader::next()
{
    QVector<VirusReport> page;
    if (!VirusConfig().getVirusReports(m_from, m_to, page, m_lastId)) {
        fail(m_installation);
    }
    if (!page.isEmpty()) {
        m_lastId = page.constLast().getId();
    }
    return page;
}

QVector<VirusReport> DetectionReader::newest(int limit, const DetectionFilter& filter) const
{
    QVector<VirusReport> found;
    QVector<VirusReport> page;
    qint64 beforeId = std::numeric_limits<qint64>::max();
    do {
        if (!VirusConfig().getLastVirusReports(m_from, m_to, page, beforeId)) {
            fail(m_installation);
        }
        for (const VirusReport& report : qAsConst(page)) {
            beforeId = report.getId();
            if (found.size() < limit && filter.matches(report)) {
                found.append(report);
            }
        }
    } while (!page.isEmpty() && found.size() < limit);
    std::reverse(found.begin(), found.end());
    return found;
}

qint64 DetectionReader::count() const
{
    const qint64 count = VirusConfig().getVirusReportCount(m_from, m_to);
    if (count < 0) {
        fail(m_installation);
    }
    return count;
}
