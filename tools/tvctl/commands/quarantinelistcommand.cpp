#include "tvctl/commands/quarantinelistcommand.h"

#include "common/common.h"
#include "common/filename.h"
#include "tvctl/commands/quarantineaccess.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/columns.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/modetext.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/timetext.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <memory>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

namespace
{
QString sizeText(qint64 size)
{
    return Common::getSizeInString(static_cast<unsigned long long>(size));
}

qint64 totalSizeOf(const QVector<QuarantineEntry>& entries)
{
    return std::accumulate(entries.begin(), entries.end(), qint64(0),
                           [](qint64 sum, const QuarantineEntry& entry) { return sum + entry.size; });
}

void printText(Output& output, const QuarantineListing& listing)
{
    QVector<QStringList> rows = {{QStringLiteral("TIME"), QStringLiteral("COPY"), QStringLiteral("SIZE"),
                                  QStringLiteral("NAME"), QStringLiteral("PATH")}};
    const auto known = [](const QString& text) {
        return text.isEmpty() ? QStringLiteral("unknown") : printable(text);
    };
    for (const QuarantineEntry& entry : listing.entries) {
        rows.append({TimeText::format(entry.time), QString::fromLatin1(entry.name), sizeText(entry.size),
                     known(entry.virusName), known(FileName::toText(entry.originalPath))});
    }
    const QStringList lines = alignColumns(rows);
    if (!listing.entries.isEmpty()) {
        output.line(output.coloured(lines.constFirst(), Output::Colour::Bold));
        output.lines(lines.mid(1));
    }
    QString summary = QStringLiteral("%1, %2").arg(QuarantineAccess::countText(listing.entries.size()),
                                                   sizeText(totalSizeOf(listing.entries)));
    if (listing.unfinished > 0) {
        summary += QStringLiteral("; unfinished: %1").arg(listing.unfinished);
    }
    if (listing.foreign > 0) {
        summary += QStringLiteral("; no copies: %1").arg(listing.foreign);
    }
    output.line(summary);
}

QJsonValue orNull(const QString& text)
{
    return text.isEmpty() ? QJsonValue() : QJsonValue(FileName::toDisplay(text));
}

QDateTime timeOf(const timespec& time)
{
    constexpr qint64 millisecondsOfASecond = 1000;
    constexpr qint64 nanosecondsOfAMillisecond = 1000000;
    return QDateTime::fromMSecsSinceEpoch(qint64(time.tv_sec) * millisecondsOfASecond +
                                          time.tv_nsec / nanosecondsOfAMillisecond);
}

QJsonObject toJson(const QuarantineEntry& entry)
{
    QJsonObject object = {{QStringLiteral("name"), QString::fromLatin1(entry.name)},
                          {QStringLiteral("time"), JsonText::time(entry.time)},
                          {QStringLiteral("size"), entry.size},
                          {QStringLiteral("virus"), orNull(entry.virusName)},
                          {QStringLiteral("path"), QJsonValue()},
                          {QStringLiteral("path_md5"), QString::fromLatin1(entry.pathDigest)},
                          {QStringLiteral("detection"), QJsonValue()},
                          {QStringLiteral("mode"), QJsonValue()},
                          {QStringLiteral("uid"), QJsonValue()},
                          {QStringLiteral("gid"), QJsonValue()},
                          {QStringLiteral("mtime"), QJsonValue()}};
    if (!entry.originalPath.isEmpty()) {
        JsonText::insertPath(object, QStringLiteral("path"), FileName::toText(entry.originalPath));
    }
    if (entry.recordId != 0) {
        object.insert(QStringLiteral("detection"), entry.recordId);
    }
    if (entry.original) {
        object.insert(QStringLiteral("mode"), modeText(entry.original->mode));
        object.insert(QStringLiteral("uid"), qint64(entry.original->uid));
        object.insert(QStringLiteral("gid"), qint64(entry.original->gid));
        object.insert(QStringLiteral("mtime"), JsonText::time(timeOf(entry.original->modified)));
    }
    return object;
}

void printJson(Output& output, const QuarantineListing& listing, bool isIdentified)
{
    QJsonArray copies;
    for (const QuarantineEntry& entry : listing.entries) {
        copies.append(toJson(entry));
    }
    output.document({{QStringLiteral("copies"), copies},
                     {QStringLiteral("total_size"), totalSizeOf(listing.entries)},
                     {QStringLiteral("unfinished"), qint64(listing.unfinished)},
                     {QStringLiteral("foreign"), qint64(listing.foreign)},
                     {QStringLiteral("records_read"), isIdentified}});
}

ExitCode list(Session& session, const std::vector<std::string>& candidates)
{
    const Quarantine quarantine = QuarantineAccess::open(session);
    QuarantineListing listing = QuarantineAccess::list(session, quarantine);
    const bool isIdentified = QuarantineAccess::identify(session, listing.entries, candidates);
    std::sort(listing.entries.begin(), listing.entries.end(),
              [](const QuarantineEntry& left, const QuarantineEntry& right) {
                  return std::tie(left.time, left.name) > std::tie(right.time, right.name);
              });
    Output& output = session.output();
    if (output.isJson()) {
        printJson(output, listing, isIdentified);
    } else {
        printText(output, listing);
    }
    return isIdentified ? ExitCode::Good : ExitCode::Error;
}
} // namespace

void addQuarantineList(const Command& quarantine)
{
    const Command command = quarantine.addCommand("list", "Show the copies in the quarantine, newest first");
    auto candidates = std::make_shared<std::vector<std::string>>();
    QuarantineAccess::addCandidatesOption(command, *candidates);
    command.setAction([candidates](Session& session) { return list(session, *candidates); });
}
