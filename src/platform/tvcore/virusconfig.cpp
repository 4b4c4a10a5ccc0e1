#include "platform/tvcore/virusconfig.h"

#include "platform/tvcore/storeregistry.h"

VirusConfig::VirusConfig() = default;

bool VirusConfig::addVirusReport(const VirusReport& report)
{
    return StoreRegistry::instance().reports().add(report);
}

bool VirusConfig::storeKeptReports()
{
    return StoreRegistry::instance().reports().storeKept();
}

bool VirusConfig::getVirusReports(const QDateTime& from, const QDateTime& to, QVector<VirusReport>& reports,
                                  qint64 afterId, int limit) const
{
    return StoreRegistry::instance().reports().find(from, to, reports, afterId, limit);
}

bool VirusConfig::getLastVirusReports(const QDateTime& from, const QDateTime& to,
                                      QVector<VirusReport>& reports, qint64 beforeId, int limit) const
{
    return StoreRegistry::instance().reports().findLast(from, to, reports, beforeId, limit);
}

qint64 VirusConfig::getVirusReportCount(const QDateTime& from, const QDateTime& to) const
{
    return StoreRegistry::instance().reports().count(from, to);
}

qint64 VirusConfig::removeVirusReports(const QDateTime& before)
{
    return StoreRegistry::instance().reports().removeBefore(before);
}
