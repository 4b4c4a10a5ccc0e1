// Lines of the daily report of the hash lists, from what the service knows of a file to the record that the
// tool reads: whatever the file is called, the line can be read, and a name on one line never becomes two
// records.
//
// The input is a path, a hash, a number for action and kind, and a time for each line.

#include "common/filename.h"
#include "fuzz/pieces.h"
#include "fuzz/property.h"
#include "ioc/iocreportline.h"
#include "tvctl/detections/iocreportrecord.h"
#include "tvctl/detections/iocreports.h"

#include <QDir>
#include <QFile>

#include <array>

#include <unistd.h>

namespace
{
const char* const actions[] = {"IA", "IR", "ID", ""};
constexpr int mostLines = 4;

/// Of this program alone: several may run at a time.
QString directory()
{
    static const QString path = QDir::tempPath() + QStringLiteral("/fuzz-iocreport-%1").arg(::getpid());
    return path;
}

/// The digits of a hash of one of the three lengths, the first of them as wanted.
QString hashOf(const QByteArray& wanted, int kind)
{
    constexpr std::array<int, 3> lengths = {32, 40, 64};
    return QString::fromLatin1(
        wanted.toHex().leftJustified(lengths.at(static_cast<std::size_t>(kind)), '0', true));
}

struct Written
{
    QByteArray line;
    QDateTime time;
    QString path;
    QString hash;
    QString action;
    int kind = 0;
};

Written nextLine(Pieces& pieces)
{
    constexpr qint64 century = 3155760000;
    constexpr int firstKind = 4;
    Written written;
    // No name holds it.
    written.path = FileName::toText(pieces.next().replace('\0', ""));
    const QByteArray digits = pieces.next();
    const auto choice = static_cast<unsigned>(pieces.nextNumber());
    const int kind = static_cast<int>(choice / 4 % 3);
    written.hash = hashOf(digits, kind);
    written.action = QLatin1String(actions[choice % 4]);
    written.kind = firstKind + kind;
    written.time = QDateTime::fromSecsSinceEpoch(qAbs(pieces.nextNumber() % century));
    written.line = iocReportLine(written.time, written.path, written.hash, written.action, written.kind);
    return written;
}

/// As the report's Latin-1 can hold it.
QString inLatin1(const QString& text)
{
    return QString::fromLatin1(text.toLatin1());
}

void checkLine(const Written& written)
{
    const QByteArray& line = written.line;
    require(line.endsWith('\n'), "a line has an end");
    require(line.count('\n') == 1 + written.path.toLatin1().count('\n'),
            "only the path may hold further line ends");

    const auto record = IocReportRecord::parse(line.chopped(1));
    require(record.has_value(), "what the service writes can be read");
    require(record->time == written.time, "the time comes back");
    if (!written.path.contains(QLatin1Char('%'))) {
        require(record->path == inLatin1(written.path), "the path comes back");
        require(record->action == written.action && record->hash == written.hash &&
                    record->hashKind == written.kind,
                "action, hash and kind come back");
    }
    require(record->action.isEmpty() || record->action == written.action, "no other action is read");
    require(record->hash.isEmpty() || record->hash == written.hash, "no other hash is read");
    require(record->hashKind == 0 || record->hashKind == written.kind, "no other kind is read");
}

void checkReport(const QVector<Written>& lines)
{
    QFile report(directory() + QStringLiteral("/21-11-2026.apmon"));
    require(report.open(QIODevice::WriteOnly | QIODevice::Truncate), "the report can be written");
    bool isOneLineEach = true;
    int lineEnds = 0;
    for (const Written& written : lines) {
        report.write(written.line);
        isOneLineEach = isOneLineEach && written.line.count('\n') == 1;
        lineEnds += written.line.count('\n');
    }
    report.close();

    QVector<IocReportRecord> records;
    const IocReports::Outcome outcome = IocReports::read(
        directory(), {}, [&records](const IocReportRecord& record) { records.append(record); });
    require(outcome.unreadableFiles == 0, "the report is read");
    require(records.size() + outcome.unreadableLines <= lineEnds, "no line is read twice");
    if (isOneLineEach) {
        require(records.size() == lines.size() && outcome.unreadableLines == 0, "each line is one record");
        for (int i = 0; i < records.size(); ++i) {
            require(records.at(i).time == lines.at(i).time, "records come in the order of the lines");
        }
    }
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Where clocks are put back, the report names the same hour twice.
    qputenv("TZ", "UTC");
    require(QDir().mkpath(directory()), "there is a directory for the report");
    std::atexit([] { QDir(directory()).removeRecursively(); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Pieces pieces(data, size);
    QVector<Written> lines;
    while (!pieces.isAtEnd() && lines.size() < mostLines) {
        lines.append(nextLine(pieces));
        checkLine(lines.last());
    }
    checkReport(lines);
    return 0;
}
