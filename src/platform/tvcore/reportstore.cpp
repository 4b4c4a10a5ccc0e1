#include "platform/tvcore/reportstore.h"

#include "platform/tvcore/storelog.h"
#include "platform/tvcore/storetext.h"
#include "platform/tvcore/storetime.h"

#include <QCoreApplication>

#include <algorithm>

namespace
{
constexpr int firstRetryMs = 1000;
constexpr int lastRetryMs = 30000;
/// Records removed or stored in one transaction: the service has to get its turn in between.
constexpr int removedPerStep = 500;
constexpr std::size_t storedPerStep = 1000;

/// The condition for a period, with its values added to `values`.
QString periodCondition(const QDateTime& from, const QDateTime& to, QVariantList& values)
{
    QString condition = QStringLiteral("TRUE");
    if (from.isValid()) {
        condition += QStringLiteral(" AND detected_at >= ?");
        values.append(StoreTime::toBound(from));
    }
    if (to.isValid()) {
        condition += QStringLiteral(" AND detected_at < ?");
        values.append(StoreTime::toBound(to));
    }
    return condition;
}

/// As far as somebody else decides how long it is.
std::size_t textLength(const VirusReport& report)
{
    return static_cast<std::size_t>(report.getFileName().size()) +
           static_cast<std::size_t>(report.getFilePath().size());
}

QString fetchedText(const StoreRow& row, int column)
{
    return StoreText::fromFetched(row.bytes(column));
}
} // namespace

ReportStore::ReportStore() : m_store(StoreSchema::reports())
{
}

void ReportStore::setDirectory(const QString& directory)
{
    close();
    m_pending.clear();
    m_pendingText = 0;
    m_store.setDirectory(directory);
}

void ReportStore::close()
{
    storeKept();
    m_retry.reset();
    m_store.close();
}

bool ReportStore::add(const VirusReport& report)
{
    if (isFull()) {
        storePending();
    }
    if (isFull()) {
        if (!m_isFullNoted) {
            m_isFullNoted = true;
            qCWarning(lcTvcore, "%zu detection records wait to be stored; further ones are lost",
                      m_pending.size());
        }
        return false;
    }
    m_pending.push_back(report);
    m_pendingText += textLength(report);
    return storePending();
}

bool ReportStore::storeKept()
{
    // Leaves the timer alone, which is the main thread's.
    while (!m_pending.empty() && writePending()) {
    }
    if (!m_pending.empty()) {
        qCWarning(lcTvcore, "%zu detection records were not stored", m_pending.size());
    }
    return m_pending.empty();
}

bool ReportStore::find(const QDateTime& from, const QDateTime& to, QVector<VirusReport>& reports,
                       qint64 afterId, int limit)
{
    return select(from, to, QStringLiteral("id > ? ORDER BY id"), afterId, limit, reports);
}

bool ReportStore::findLast(const QDateTime& from, const QDateTime& to, QVector<VirusReport>& reports,
                           qint64 beforeId, int limit)
{
    return select(from, to, QStringLiteral("id < ? ORDER BY id DESC"), beforeId, limit, reports);
}

qint64 ReportStore::count(const QDateTime& from, const QDateTime& to)
{
    QVariantList values;
    const QString condition = periodCondition(from, to, values);
    qint64 number = -1;
    const bool isRead = m_store.read([&](StoreConnection& connection) {
        return connection.select(QStringLiteral("SELECT count(*) FROM virus_report WHERE %1").arg(condition),
                                 values, [&number](const StoreRow& row) { number = row.integer(0); });
    });
    return isRead ? number : -1;
}

qint64 ReportStore::removeBefore(const QDateTime& before)
{
    if (!before.isValid()) {
        return -1;
    }
    qint64 removed = 0;
    int step = 0;
    do {
        const bool isRemoved = m_store.write(
            [&before, &step](StoreConnection& connection) {
                const bool isDone = connection.execute(
                    QStringLiteral("DELETE FROM virus_report WHERE id IN "
                                   "(SELECT id FROM virus_report WHERE detected_at < ? LIMIT ?)"),
                    {StoreTime::toBound(before), removedPerStep});
                step = connection.affectedRows();
                return isDone;
            },
            Store::Patience::Long);
        if (!isRemoved) {
            return -1;
        }
        removed += step;
    } while (step == removedPerStep);
    return removed;
}

bool ReportStore::select(const QDateTime& from, const QDateTime& to, const QString& order, qint64 id,
                         int limit, QVector<VirusReport>& reports)
{
    QVariantList values;
    const QString condition = periodCondition(from, to, values);
    values.append(id);
    values.append(std::max(limit, 0));
    const QString sql =
        QStringLiteral("SELECT id, detected_at, CAST(file_name AS BLOB), CAST(file_path AS BLOB), "
                       "CAST(virus_name AS BLOB), clean_status, CAST(module_name AS BLOB), "
                       "CAST(module_version AS BLOB) FROM virus_report WHERE %1 AND %2 LIMIT ?")
            .arg(condition, order);
    const bool isRead = m_store.read([&](StoreConnection& connection) {
        reports.clear();
        return connection.select(sql, values,
                                 [&reports](const StoreRow& row) { reports.append(fromRow(row)); });
    });
    if (!isRead) {
        reports.clear();
    }
    return isRead;
}

bool ReportStore::isFull() const
{
    return m_pending.size() >= maxPending || m_pendingText >= maxPendingText;
}

bool ReportStore::storePending()
{
    const bool isWritten = writePending();
    if (m_pending.empty()) {
        m_retry.reset();
        return true;
    }
    if (isWritten) {
        tryAgainAfter(0);
    } else if (m_retry == nullptr) {
        tryAgainAfter(firstRetryMs);
    }
    return false;
}

bool ReportStore::writePending()
{
    const auto end = m_pending.cbegin() + static_cast<int>(std::min(m_pending.size(), storedPerStep));
    const bool isStored = m_store.write([this, end](StoreConnection& connection) {
        return std::all_of(m_pending.cbegin(), end,
                           [&connection](const VirusReport& report) { return insert(connection, report); });
    });
    if (isStored) {
        std::for_each(m_pending.cbegin(), end,
                      [this](const VirusReport& report) { m_pendingText -= textLength(report); });
        m_pending.erase(m_pending.cbegin(), end);
        m_isFullNoted = false;
    }
    return isStored;
}

void ReportStore::tryAgainAfter(int delayMs)
{
    if (QCoreApplication::instance() == nullptr) {
        return;
    }
    // The next detection may be a long time away.
    if (m_retry == nullptr) {
        m_retry = std::make_unique<QTimer>();
        QObject::connect(m_retry.get(), &QTimer::timeout, m_retry.get(), [this] {
            m_retry->setInterval(qBound(firstRetryMs, m_retry->interval() * 2, lastRetryMs));
            storePending();
        });
    }
    m_retry->start(delayMs);
}

bool ReportStore::insert(StoreConnection& connection, const VirusReport& report)
{
    return connection.execute(
        QStringLiteral(
            "INSERT INTO virus_report(detected_at, file_name, file_path, virus_name, clean_status, "
            "module_name, module_version) VALUES(?, CAST(? AS TEXT), CAST(? AS TEXT), "
            "CAST(? AS TEXT), ?, CAST(? AS TEXT), CAST(? AS TEXT))"),
        {StoreTime::toBound(report.m_dateTime), StoreText::toBound(report.m_fileName),
         StoreText::toBound(report.m_filePath), StoreText::toBound(report.m_virusName), report.m_cleanStatus,
         StoreText::toBound(report.m_moduleName), StoreText::toBound(report.m_moduleVersion)});
}

VirusReport ReportStore::fromRow(const StoreRow& row)
{
    VirusReport report;
    report.m_id = row.integer(0);
    if (!row.isNull(1)) {
        report.m_dateTime = QDateTime::fromMSecsSinceEpoch(row.integer(1));
    }
    report.m_fileName = fetchedText(row, 2);
    report.m_filePath = fetchedText(row, 3);
    report.m_virusName = fetchedText(row, 4);
    report.m_cleanStatus = static_cast<int>(row.integer(5));
    report.m_moduleName = fetchedText(row, 6);
    report.m_moduleVersion = fetchedText(row, 7);
    return report;
}
