#include "tvctl/detections/reportsummary.h"

#include "tvctl/console/printable.h"
#include "tvctl/console/timetext.h"
#include "tvctl/detections/detectionstatus.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

namespace
{
constexpr int topCount = 8;

QString folderOf(const QString& path)
{
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    return slash > 0 ? path.left(slash) : QStringLiteral("/");
}

QJsonArray toJson(const QVector<QPair<QString, qint64>>& top)
{
    QJsonArray array;
    for (const auto& [text, count] : top) {
        array.append(QJsonArray{text, count});
    }
    return array;
}

QString zoneOf(const QDateTime& time)
{
    const int minutes = time.offsetFromUtc() / 60;
    return QStringLiteral("UTC%1%2:%3")
        .arg(minutes < 0 ? QStringLiteral("-") : QStringLiteral("+"))
        .arg(std::abs(minutes) / 60, 2, 10, QLatin1Char('0'))
        .arg(std::abs(minutes) % 60, 2, 10, QLatin1Char('0'));
}
} // namespace

ReportSummary::ReportSummary(const QDateTime& since, const QDateTime& now)
    : m_since(since),
      m_now(now),
      m_timeline(now)
{
}

void ReportSummary::add(const VirusReport& report)
{
    const QString name = printable(report.getVirusName());
    count(report.getDateTime(), seriesOf(report), report.getFilePath());
    m_names.add(name);
    keep(m_detectionRows, {report.getDateTime(), detectionStatusWord(detectionStatusOf(report)), name,
                           printable(report.getFilePath()), printable(report.getModuleName())});
}

void ReportSummary::add(const IocReportRecord& record)
{
    count(record.time, HashMatch, record.path);
    keep(m_hashRows, {record.time, record.result(), printable(record.hashText()), printable(record.path),
                      QStringLiteral("hash list")});
}

void ReportSummary::setUnreadable(qint64 lines)
{
    m_unreadable = lines;
}

qint64 ReportSummary::detections() const
{
    return std::accumulate(m_counts.cbegin(), m_counts.cend(), qint64(0)) - hashMatches();
}

QJsonObject ReportSummary::toJson(const QString& hostname) const
{
    const QJsonArray table = rows();
    return {
        {QStringLiteral("host"), printable(hostname)},
        {QStringLiteral("generated"), TimeText::format(m_now)},
        {QStringLiteral("zone"), zoneOf(m_now)},
        {QStringLiteral("since"), m_since.isValid() ? QJsonValue(TimeText::format(m_since)) : QJsonValue()},
        {QStringLiteral("counts"), QJsonObject{{QStringLiteral("cleaned"), m_counts[Cleaned]},
                                               {QStringLiteral("reported"), m_counts[Reported]},
                                               {QStringLiteral("allowed"), m_counts[Allowed]},
                                               {QStringLiteral("failed"), m_counts[Failed]},
                                               {QStringLiteral("hash"), m_counts[HashMatch]}}},
        {QStringLiteral("undated"), m_undated},
        {QStringLiteral("unreadable"), m_unreadable},
        {QStringLiteral("timeline"), timeline()},
        {QStringLiteral("names"), ::toJson(m_names.top(topCount))},
        {QStringLiteral("folders"), ::toJson(m_folders.top(topCount))},
        {QStringLiteral("exact"), m_names.isExact() && m_folders.isExact()},
        {QStringLiteral("rows"), table},
        {QStringLiteral("cut"), detections() + hashMatches() > table.size()},
    };
}

ReportSummary::Series ReportSummary::seriesOf(const VirusReport& report)
{
    switch (detectionStatusOf(report)) {
    case DetectionStatus::Cleaned:
        return Cleaned;
    case DetectionStatus::Reported:
        return Reported;
    case DetectionStatus::Allowed:
        return Allowed;
    default:
        return Failed;
    }
}

void ReportSummary::count(const QDateTime& time, Series series, const QString& path)
{
    ++m_counts[series];
    if (!m_timeline.add(time, series)) {
        ++m_undated;
    }
    m_folders.add(printable(folderOf(path)));
}

void ReportSummary::keep(std::deque<Row>& rows, Row row)
{
    rows.push_back(std::move(row));
    if (rows.size() > maxRows) {
        rows.pop_front();
    }
}

QJsonObject ReportSummary::timeline() const
{
    Timeline::Unit unit = Timeline::Unit::Hour;
    QJsonArray bars;
    const QVector<Timeline::Bar> all = m_timeline.bars(m_since, unit);
    for (const Timeline::Bar& bar : all) {
        QJsonArray values{bar.start};
        for (const qint64 count : bar.counts) {
            values.append(count);
        }
        bars.append(values);
    }
    return {{QStringLiteral("unit"), timelineUnitWord(unit)}, {QStringLiteral("bars"), bars}};
}

QJsonArray ReportSummary::rows() const
{
    std::vector<Row> all(m_detectionRows.cbegin(), m_detectionRows.cend());
    std::copy(m_hashRows.cbegin(), m_hashRows.cend(), std::back_inserter(all));
    // Newest first; what has no time comes last.
    std::reverse(all.begin(), all.end());
    std::stable_sort(all.begin(), all.end(), [](const Row& left, const Row& right) {
        return left.time.isValid() && (!right.time.isValid() || left.time > right.time);
    });
    all.resize(std::min<size_t>(all.size(), maxRows));
    QJsonArray array;
    for (const Row& row : all) {
        array.append(QJsonArray{TimeText::format(row.time), row.result, row.name, row.path, row.source});
    }
    return array;
}
