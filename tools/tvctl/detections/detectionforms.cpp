#include "tvctl/detections/detectionforms.h"

#include "common/filename.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/detections/detectionid.h"
#include "tvctl/detections/detectionstatus.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QStringList>

namespace
{
constexpr QChar quote = QLatin1Char('"');
constexpr QChar apostrophe = QLatin1Char('\'');

/// A field whose content is somebody else's.
QString foreignField(const QString& text)
{
    QString field = FileName::toDisplay(text);
    // A spreadsheet takes what begins like this for a formula, and runs it.
    if (!field.isEmpty() && QStringLiteral("=+-@\t\r\n").contains(field.at(0))) {
        field.prepend(apostrophe);
    }
    if (field.contains(quote) || field.contains(QLatin1Char(',')) || field.contains(QLatin1Char('\r')) ||
        field.contains(QLatin1Char('\n'))) {
        field.replace(quote, QStringLiteral("\"\""));
        return quote + field + quote;
    }
    return field;
}

QByteArray csvLine(const QStringList& fields)
{
    return fields.join(QLatin1Char(',')).toUtf8() + "\r\n";
}

/// The exact bytes of a name that cannot be shown; empty for any other.
QString exactBytes(const QString& path)
{
    QJsonObject object;
    JsonText::insertPath(object, QStringLiteral("p"), path);
    return object.value(QStringLiteral("p_base64")).toString();
}

QJsonObject ecsEvent(const VirusReport& report, DetectionStatus status)
{
    const bool isCleaned = status == DetectionStatus::Cleaned;
    QJsonObject event{
        {QStringLiteral("id"), DetectionId(report).text()},
        {QStringLiteral("sequence"), report.getId()},
        {QStringLiteral("kind"), QStringLiteral("alert")},
        {QStringLiteral("category"), isCleaned ? QJsonArray{QStringLiteral("malware"), QStringLiteral("file")}
                                               : QJsonArray{QStringLiteral("malware")}},
        {QStringLiteral("type"), isCleaned ? QJsonArray{QStringLiteral("info"), QStringLiteral("deletion")}
                                           : QJsonArray{QStringLiteral("info")}},
        {QStringLiteral("action"), detectionStatusWord(status)},
        {QStringLiteral("module"), QStringLiteral("tvfilemon")},
        {QStringLiteral("dataset"), QStringLiteral("tvfilemon.detections")},
        {QStringLiteral("provider"), FileName::toDisplay(report.getModuleName())},
    };
    // Where nothing was attempted there is no outcome.
    if (isCleaned) {
        event.insert(QStringLiteral("outcome"), QStringLiteral("success"));
    } else if (status == DetectionStatus::Failed) {
        event.insert(QStringLiteral("outcome"), QStringLiteral("failure"));
    }
    return event;
}

QJsonObject ecsFile(const VirusReport& report)
{
    const QString path = FileName::toDisplay(report.getFilePath());
    QJsonObject file{
        {QStringLiteral("path"), path},
        {QStringLiteral("name"), FileName::toDisplay(report.getFileName())},
        {QStringLiteral("type"), QStringLiteral("file")},
    };
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    if (slash >= 0) {
        file.insert(QStringLiteral("directory"), slash == 0 ? QStringLiteral("/") : path.left(slash));
    }
    return file;
}

QJsonObject ecsHost(const HostIdentity& host)
{
    QJsonObject object;
    if (!host.hostname.isEmpty()) {
        object.insert(QStringLiteral("hostname"), host.hostname);
        object.insert(QStringLiteral("name"), host.hostname);
    }
    if (!host.id.isEmpty()) {
        object.insert(QStringLiteral("id"), host.id);
    }
    return object;
}

QString ecsMessage(const VirusReport& report, DetectionStatus status)
{
    return QStringLiteral("%1 in %2: %3")
        .arg(FileName::toDisplay(report.getVirusName()), FileName::toDisplay(report.getFilePath()),
             detectionStatusWord(status));
}
} // namespace

QJsonObject DetectionForms::json(const VirusReport& report)
{
    QJsonObject object{
        {QStringLiteral("id"), report.getId()},
        {QStringLiteral("event_id"), DetectionId(report).text()},
        {QStringLiteral("time"), JsonText::time(report.getDateTime())},
        {QStringLiteral("status"), detectionStatusWord(detectionStatusOf(report))},
        {QStringLiteral("clean_status"), report.getCleanStatus()},
        {QStringLiteral("virus"), FileName::toDisplay(report.getVirusName())},
        {QStringLiteral("module"), FileName::toDisplay(report.getModuleName())},
        {QStringLiteral("module_version"), FileName::toDisplay(report.getModuleVersion())},
    };
    JsonText::insertPath(object, QStringLiteral("path"), report.getFilePath());
    JsonText::insertPath(object, QStringLiteral("file_name"), report.getFileName());
    return object;
}

QJsonObject DetectionForms::ecs(const VirusReport& report, const HostIdentity& host)
{
    const DetectionStatus status = detectionStatusOf(report);
    const QString virus = FileName::toDisplay(report.getVirusName());
    QJsonObject own{{QStringLiteral("clean_status"), report.getCleanStatus()}};
    const QString bytes = exactBytes(report.getFilePath());
    if (!bytes.isEmpty()) {
        own.insert(QStringLiteral("path_base64"), bytes);
    }
    return {
        {QStringLiteral("@timestamp"), JsonText::time(report.getDateTime())},
        {QStringLiteral("ecs"), QJsonObject{{QStringLiteral("version"), QStringLiteral("8.11.0")}}},
        {QStringLiteral("event"), ecsEvent(report, status)},
        {QStringLiteral("file"), ecsFile(report)},
        {QStringLiteral("rule"), QJsonObject{{QStringLiteral("name"), virus}}},
        {QStringLiteral("threat"),
         QJsonObject{
             {QStringLiteral("indicator"), QJsonObject{{QStringLiteral("name"), virus},
                                                       {QStringLiteral("type"), QStringLiteral("file")}}}}},
        {QStringLiteral("host"), ecsHost(host)},
        {QStringLiteral("observer"),
         QJsonObject{{QStringLiteral("product"), QStringLiteral("tvfilemon")},
                     {QStringLiteral("type"), QStringLiteral("antivirus")},
                     {QStringLiteral("version"), FileName::toDisplay(report.getModuleVersion())}}},
        {QStringLiteral("message"), ecsMessage(report, status)},
        {QStringLiteral("tvfilemon"), own},
    };
}

QByteArray DetectionForms::csv(const VirusReport& report)
{
    return csvLine({
        QString::number(report.getId()),
        DetectionId(report).text(),
        JsonText::time(report.getDateTime()).toString(),
        detectionStatusWord(detectionStatusOf(report)),
        foreignField(report.getVirusName()),
        foreignField(report.getFilePath()),
        exactBytes(report.getFilePath()),
        foreignField(report.getFileName()),
        foreignField(report.getModuleName()),
        foreignField(report.getModuleVersion()),
    });
}

QByteArray DetectionForms::csvHeader()
{
    return csvLine({QStringLiteral("id"), QStringLiteral("event_id"), QStringLiteral("time"),
                    QStringLiteral("status"), QStringLiteral("virus"), QStringLiteral("path"),
                    QStringLiteral("path_base64"), QStringLiteral("file_name"), QStringLiteral("module"),
                    QStringLiteral("module_version")});
}

QByteArray DetectionForms::line(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}
