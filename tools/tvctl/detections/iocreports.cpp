#include "tvctl/detections/iocreports.h"

#include "common/filename.h"
#include "common/uniquefd.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <QMap>

#include <fcntl.h>
#include <sys/stat.h>

namespace
{
/// Longer than the longest path with all that stands around it. A line end in a path makes a record of
/// several lines.
constexpr int longestRecord = 16 * 1024;

UniqueFd openReport(const QString& path)
{
    // Not waiting: somebody may have put a FIFO there.
    UniqueFd file(
        ::open(FileName::toBytes(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    if (file.isValid() && (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))) {
        file.reset();
    }
    return file;
}

/// By day.
QMap<QDate, QString> reportsIn(const QString& directory)
{
    QMap<QDate, QString> reports;
    const QStringList names =
        QDir(directory).entryList({QStringLiteral("*.apmon")}, QDir::Files | QDir::System | QDir::Hidden);
    for (const QString& name : names) {
        const QDate day = QLocale::c().toDate(name, QStringLiteral("dd-MM-yyyy'.apmon'"));
        if (day.isValid()) {
            reports.insert(day, directory + QLatin1Char('/') + name);
        }
    }
    return reports;
}

/// Puts the lines of a report together to records.
class Assembler
{
public:
    Assembler(const QDateTime& since, const std::function<void(const IocReportRecord&)>& take,
              IocReports::Outcome& outcome)
        : m_since(since),
          m_take(take),
          m_outcome(outcome)
    {
    }

    void add(const QByteArray& line)
    {
        const QByteArray whole = m_pending.isEmpty() ? line : m_pending + '\n' + line;
        if (const auto record = IocReportRecord::parse(whole)) {
            m_pending.clear();
            if (!m_since.isValid() || record->time >= m_since) {
                m_take(*record);
            }
        } else if (IocReportRecord::canBegin(whole) && whole.size() < longestRecord) {
            m_pending = whole;
        } else {
            m_pending.clear();
            ++m_outcome.unreadableLines;
        }
    }

    void finish()
    {
        if (!m_pending.isEmpty()) {
            m_pending.clear();
            ++m_outcome.unreadableLines;
        }
    }

private:
    const QDateTime& m_since;
    const std::function<void(const IocReportRecord&)>& m_take;
    IocReports::Outcome& m_outcome;
    QByteArray m_pending;
};
} // namespace

IocReports::Outcome IocReports::read(const QString& directory, const QDateTime& since,
                                     const std::function<void(const IocReportRecord&)>& take)
{
    Outcome outcome;
    const QMap<QDate, QString> reports = reportsIn(directory);
    for (auto report = reports.cbegin(); report != reports.cend(); ++report) {
        if (since.isValid() && report.key() < since.toLocalTime().date()) {
            continue;
        }
        const UniqueFd descriptor = openReport(report.value());
        QFile file;
        if (!descriptor.isValid() || !file.open(descriptor.get(), QIODevice::ReadOnly)) {
            ++outcome.unreadableFiles;
            continue;
        }
        Assembler assembler(since, take, outcome);
        QByteArray line = file.readLine(longestRecord);
        while (!line.isEmpty()) {
            if (line.endsWith('\n')) {
                line.chop(1);
            }
            assembler.add(line);
            line = file.readLine(longestRecord);
        }
        assembler.finish();
    }
    return outcome;
}
