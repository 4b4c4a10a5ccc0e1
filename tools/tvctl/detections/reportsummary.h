#pragma once

#include "platform/tvcore/virusreport.h"
#include "tvctl/detections/iocreportrecord.h"
#include "tvctl/detections/timeline.h"
#include "tvctl/detections/topcounter.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QVector>

#include <array>
#include <deque>

/// What the report page shows, gathered from all records one after the other.
///
/// Names and paths come out printable: neither control characters nor such that turn or hide text.
class ReportSummary
{
public:
    /// Rows of the table; a page with more would be slow to open.
    static constexpr int maxRows = 10000;

    /// `since` is where the period begins, invalid for everything.
    ReportSummary(const QDateTime& since, const QDateTime& now);

    /// In the order in which they were stored.
    void add(const VirusReport& report);
    void add(const IocReportRecord& record);
    /// Pieces of the reports that are no records.
    void setUnreadable(qint64 lines);

    qint64 detections() const;
    qint64 hashMatches() const
    {
        return m_counts[HashMatch];
    }

    /// The fields that report/report.js reads.
    QJsonObject toJson(const QString& hostname) const;

private:
    enum Series
    {
        Cleaned,
        Reported,
        Allowed,
        Failed,
        HashMatch
    };

    struct Row
    {
        QDateTime time;
        QString result;
        QString name;
        QString path;
        QString source;
    };

    static Series seriesOf(const VirusReport& report);
    void count(const QDateTime& time, Series series, const QString& path);
    static void keep(std::deque<Row>& rows, Row row);
    QJsonObject timeline() const;
    QJsonArray rows() const;

    const QDateTime m_since;
    const QDateTime m_now;
    Timeline m_timeline;
    std::array<qint64, Timeline::seriesCount> m_counts = {};
    qint64 m_undated = 0;
    qint64 m_unreadable = 0;
    TopCounter m_names;
    TopCounter m_folders;
    /// The newest ones.
    std::deque<Row> m_detectionRows;
    std::deque<Row> m_hashRows;
};
