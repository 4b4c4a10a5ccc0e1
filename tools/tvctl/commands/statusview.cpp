#include "tvctl/commands/statusview.h"

#include "common/common.h"
#include "common/filename.h"
#include "tvctl/console/columns.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/timetext.h"
#include "tvctl/health/databasechecks.h"

#include <QJsonArray>
#include <QLocale>

namespace
{
using State = ServiceConnection::State;

QString counted(qint64 number)
{
    return QLocale::c().toString(number);
}

QString onOff(bool isOn)
{
    return isOn ? QStringLiteral("on") : QStringLiteral("off");
}

const char* stateOf(const ServiceFacts& service)
{
    if (service.probe.answers()) {
        return "running";
    }
    if (service.isBarred()) {
        return "barred";
    }
    if (service.isLoading()) {
        return "loading";
    }
    if (service.probe.state == State::Untrusted) {
        return "untrusted";
    }
    return service.processes.isEmpty() ? "down" : "silent";
}

QString serviceText(const ServiceFacts& service)
{
    QString text;
    if (service.probe.answers()) {
        text = QStringLiteral("running, answers");
    } else if (service.isBarred()) {
        text = QStringLiteral("there, but only root may ask it");
    } else if (service.isLoading()) {
        text = QStringLiteral("loading its signatures");
    } else {
        text = service.probe.problem;
    }
    if (!service.processes.isEmpty()) {
        text += QStringLiteral(", process %1, for %2")
                    .arg(service.processes.first().id)
                    .arg(TimeText::formatSpan(service.processes.first().uptimeSeconds));
    }
    return text;
}

QString scanActionText(int action)
{
    return action == 0 ? QStringLiteral("report only")
                       : QStringLiteral("clean (copy into quarantine, then remove)");
}

QString iocActionText(int action)
{
    switch (action) {
    case 0:
        return QStringLiteral("allow");
    case 1:
        return QStringLiteral("rename");
    case 2:
        return QStringLiteral("delete");
    default:
        return QString::number(action);
    }
}

const char* loadName(LoadOutcome::Result result)
{
    switch (result) {
    case LoadOutcome::Result::Loaded:
        return "succeeded";
    case LoadOutcome::Result::Failed:
        return "failed";
    case LoadOutcome::Result::Starting:
    case LoadOutcome::Result::Loading:
        return "loading";
    default:
        return "unknown";
    }
}

QString loadText(const LoadOutcome& load)
{
    QString text = QLatin1String(loadName(load.result));
    if (load.result == LoadOutcome::Result::Failed && !load.file.isEmpty()) {
        text += QStringLiteral(": ") + printable(load.file) + QStringLiteral(", ") +
                ServiceReply::scanErrorText(load.errorCode);
    }
    return load.time.isValid() ? text + QStringLiteral(", ") + TimeText::format(load.time) : text;
}

QString fileText(const SignatureFile& file, const QDateTime& now)
{
    QString text = printable(file.name);
    if (!file.problem.isEmpty()) {
        return text + QStringLiteral(": ") + file.problem;
    }
    text += QStringLiteral(": version %1, %2 signatures")
                .arg(file.header->version)
                .arg(counted(file.header->signatures));
    if (file.header->built.isValid()) {
        text += QStringLiteral(", %1 days old").arg(DatabaseChecks::ageInDays(file.header->built, now));
    }
    return text;
}

QString updateText(const UpdateStatus& update)
{
    QString text = printable(update.result) + QStringLiteral(", ") + TimeText::format(update.tried);
    if (!update.isGood()) {
        text += QStringLiteral(": %1; last success: %2")
                    .arg(printable(update.message), update.succeeded.isValid()
                                                        ? TimeText::format(update.succeeded)
                                                        : QStringLiteral("never"));
    }
    return text;
}

QJsonValue updateDocument(const std::optional<UpdateStatus>& update)
{
    if (!update) {
        return {};
    }
    return QJsonObject{{QStringLiteral("result"), update->result},
                       {QStringLiteral("time"), JsonText::time(update->tried)},
                       {QStringLiteral("last_success"), JsonText::time(update->succeeded)},
                       {QStringLiteral("message"), update->message}};
}

QString watchesText(const WatchFacts& watches)
{
    QString text = QStringLiteral("%1%2 needed")
                       .arg(watches.need.isComplete ? QString() : QStringLiteral("more than "))
                       .arg(counted(watches.need.directories));
    if (watches.use) {
        text.prepend(counted(watches.use->watched.size()) + QStringLiteral(" directories, "));
    }
    if (watches.limits.watches >= 0) {
        text += QStringLiteral(", the kernel's limit is %1").arg(counted(watches.limits.watches));
    }
    return text;
}

QJsonObject fileDocument(const SignatureFile& file, const QDateTime& now)
{
    QJsonObject object;
    JsonText::insertPath(object, QStringLiteral("name"), file.name);
    const bool hasHeader = file.header.has_value();
    const bool hasAge = hasHeader && file.header->built.isValid();
    object.insert(QStringLiteral("problem"),
                  file.problem.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(file.problem));
    object.insert(QStringLiteral("version"),
                  hasHeader ? QJsonValue(static_cast<qint64>(file.header->version)) : QJsonValue());
    object.insert(QStringLiteral("signatures"),
                  hasHeader ? QJsonValue(static_cast<qint64>(file.header->signatures)) : QJsonValue());
    object.insert(QStringLiteral("built"), hasAge ? JsonText::time(file.header->built) : QJsonValue());
    object.insert(QStringLiteral("age_days"),
                  hasAge ? QJsonValue(DatabaseChecks::ageInDays(file.header->built, now)) : QJsonValue());
    return object;
}

/// A value, or null when it is not known.
template <typename Value> QJsonValue known(bool isKnown, Value value)
{
    return isKnown ? QJsonValue(value) : QJsonValue();
}
} // namespace

QStringList StatusView::lines(const Output& output) const
{
    const bool isGood = verdict.state == Verdict::State::Protected;
    QStringList lines = {
        output.coloured(printable(verdict.text()), isGood ? Output::Colour::Good : Output::Colour::Bad),
        QString()};
    const QString unknown = QStringLiteral("unknown");
    QVector<QStringList> rows;
    const auto add = [&rows](const char* name, const QString& value) {
        rows += QStringList{QLatin1String(name), value};
    };
    add("service", serviceText(service));
    add("protection", stores.hasSettings() ? onOff(stores.isRealtimeOn) : unknown);
    add("scan action", stores.hasSettings() ? scanActionText(stores.scanAction) : unknown);
    add("IOC scan",
        stores.hasSettings()
            ? QStringLiteral("%1, action %2").arg(onOff(stores.isIocOn), iocActionText(stores.iocAction))
            : unknown);
    add("IOC lists", stores.hasSettings() ? QStringLiteral("MD5 %1, SHA-1 %2, SHA-256 %3")
                                                .arg(counted(stores.md5Hashes), counted(stores.sha1Hashes),
                                                     counted(stores.sha256Hashes))
                                          : unknown);
    for (const SignatureFile& file : files.loaded) {
        add("signatures", fileText(file, time));
    }
    if (files.loaded.isEmpty()) {
        add("signatures", files.problem.isEmpty() ? QStringLiteral("none") : files.problem);
    }
    add("last load", loadText(service.load));
    if (update) {
        add("last update", updateText(*update));
    }
    add("watches", watchesText(watches));
    add("detections", stores.hasReports()
                          ? QStringLiteral("%1 in the last 24 h").arg(counted(stores.detectionsOfLastDay))
                          : unknown);
    add("quarantine",
        quarantineFiles >= 0
            ? QStringLiteral("%1 files, %2")
                  .arg(counted(quarantineFiles),
                       Common::getSizeInString(static_cast<unsigned long long>(quarantineBytes)))
            : unknown);
    lines += alignColumns(rows);
    for (const QString& warning : verdict.warnings) {
        lines += output.coloured(QStringLiteral("warning: ") + printable(warning), Output::Colour::Warning);
    }
    return lines;
}

QJsonObject StatusView::document() const
{
    const bool hasSettings = stores.hasSettings();
    const bool hasProcess = !service.processes.isEmpty();
    QJsonArray signatures;
    for (const SignatureFile& file : files.loaded) {
        signatures.append(fileDocument(file, time));
    }
    QJsonObject load = {{QStringLiteral("result"), QLatin1String(loadName(service.load.result))},
                        {QStringLiteral("time"), JsonText::time(service.load.time)},
                        {QStringLiteral("error_code"),
                         known(service.load.result == LoadOutcome::Result::Failed, service.load.errorCode)}};
    if (!service.load.file.isEmpty()) {
        JsonText::insertPath(load, QStringLiteral("file"), service.load.file);
    }
    QStringList reasons;
    for (const QString& reason : verdict.reasons) {
        reasons += FileName::toDisplay(reason);
    }
    QStringList warnings;
    for (const QString& warning : verdict.warnings) {
        warnings += FileName::toDisplay(warning);
    }
    return {
        {QStringLiteral("protected"),
         known(verdict.state != Verdict::State::Unknown, verdict.state == Verdict::State::Protected)},
        {QStringLiteral("reasons"), QJsonArray::fromStringList(reasons)},
        {QStringLiteral("warnings"), QJsonArray::fromStringList(warnings)},
        {QStringLiteral("service"),
         QJsonObject{
             {QStringLiteral("state"), QLatin1String(stateOf(service))},
             {QStringLiteral("process_id"), known(hasProcess, hasProcess ? service.processes.first().id : 0)},
             {QStringLiteral("uptime_seconds"),
              known(hasProcess, hasProcess ? service.processes.first().uptimeSeconds : 0)},
             {QStringLiteral("engine_detects"), known(service.probe.answers(), service.probe.detects())}}},
        {QStringLiteral("realtime"), known(hasSettings, stores.isRealtimeOn)},
        {QStringLiteral("scan_action"), known(hasSettings, stores.scanAction)},
        {QStringLiteral("ioc"),
         QJsonObject{{QStringLiteral("enabled"), known(hasSettings, stores.isIocOn)},
                     {QStringLiteral("action"), known(hasSettings, stores.iocAction)},
                     {QStringLiteral("md5"), known(hasSettings, stores.md5Hashes)},
                     {QStringLiteral("sha1"), known(hasSettings, stores.sha1Hashes)},
                     {QStringLiteral("sha256"), known(hasSettings, stores.sha256Hashes)}}},
        {QStringLiteral("signatures"), signatures},
        {QStringLiteral("last_load"), load},
        {QStringLiteral("last_update"), updateDocument(update)},
        {QStringLiteral("watches"),
         QJsonObject{{QStringLiteral("needed"), watches.need.directories},
                     {QStringLiteral("counted_all"), watches.need.isComplete},
                     {QStringLiteral("active"),
                      known(watches.use.has_value(), watches.use ? watches.use->watched.size() : 0)},
                     {QStringLiteral("missing"), known(watches.use.has_value(), watches.need.unwatched)},
                     {QStringLiteral("limit"), known(watches.limits.watches >= 0, watches.limits.watches)}}},
        {QStringLiteral("detections_last_day"), known(stores.hasReports(), stores.detectionsOfLastDay)},
        {QStringLiteral("quarantine"),
         QJsonObject{{QStringLiteral("files"), known(quarantineFiles >= 0, quarantineFiles)},
                     {QStringLiteral("bytes"), known(quarantineFiles >= 0, quarantineBytes)}}}};
}
