#include "tvctl/detections/detectionforms.h"

#include "common/filename.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"
#include "tvctl/detections/detectionid.h"
#include "tvctl/detections/detectionstatus.h"

#include <QJsonArray>
#include <QStringList>

namespace
{
constexpr QChar quote = QLatin1Char('"');
constexpr QChar apostrophe = QLatin1Char('\'');

/// Whether a spreadsheet takes what begins at `start` for a formula, and runs it. It may pass over blanks;
/// and where a cell begins for it, a quotation mark is not part of it.
bool isFormula(const QString& field, int start)
{
    // The wide forms of these characters count as well where such are usual.
    static const QString beginnings = QStringLiteral("=+-@\uFF1D\uFF0B\uFF0D\uFF20");
    int i = start;
    while (i < field.size() && (field.at(i).isSpace() || field.at(i) == quote)) {
        ++i;
    }
    return i < field.size() && beginnings.contains(field.at(i));
}

/// What a cell may show of a text that is somebody else's.
QString harmless(const QString& text)
{
    // Without control characters, so no tab separates cells and no line end rows.
    QString shown = printable(text);
    // In half of Europe spreadsheets part cells at semicolons instead, and then heed no quotes around a field
    // of this table.
    for (int i = shown.size() - 1; i >= 0; --i) {
        if (shown.at(i) == QLatin1Char(';') && isFormula(shown, i + 1)) {
            shown.insert(i + 1, apostrophe);
        }
    }
    if (isFormula(shown, 0)) {
        shown.prepend(apostrophe);
    }
    return shown;
}

QString foreignField(const QString& text)
{
    QString field = harmless(text);
    if (field.contains(quote) || field.contains(QLatin1Char(','))) {
        field.replace(quote, QStringLiteral("\"\""));
        return quote + field + quote;
    }
    return field;
}

/// The exact bytes of a path that its cell cannot show; empty for any other.
QString bytesBeside(const QString& path)
{
    return harmless(path) == path ? QString() : QString::fromLatin1(FileName::toBytes(path).toBase64());
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

/// The journal cuts a line in two behind 48 KB, and neither half is JSON. Two texts are in three fields each,
/// and a character may take six bytes.
constexpr int longestEcsText = 1024;

/// All of the longest path that a program can name.
constexpr int longestEcsBytes = 5464;

/// `text` for people, without its middle when it is too long.
QString ecsText(const QString& text)
{
    const QString shown = FileName::toDisplay(text);
    if (shown.size() <= longestEcsText) {
        return shown;
    }
    const QString gap = QStringLiteral("...");
    const int half = (longestEcsText - gap.size()) / 2;
    // A character of two units stays whole.
    const int front = shown.at(half - 1).isHighSurrogate() ? half - 1 : half;
    const int back = shown.at(shown.size() - half).isLowSurrogate() ? half - 1 : half;
    return shown.left(front) + gap + shown.right(back);
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
    const QString path = ecsText(report.getFilePath());
    QJsonObject file{
        {QStringLiteral("path"), path},
        {QStringLiteral("name"), ecsText(report.getFileName())},
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
        .arg(ecsText(report.getVirusName()), ecsText(report.getFilePath()), detectionStatusWord(status));
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
    const QString virus = ecsText(report.getVirusName());
    QJsonObject own{{QStringLiteral("clean_status"), report.getCleanStatus()}};
    const QString bytes = exactBytes(report.getFilePath());
    if (!bytes.isEmpty() && bytes.size() <= longestEcsBytes) {
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
        bytesBeside(report.getFilePath()),
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
    return JsonText::write(QJsonDocument(object), QJsonDocument::Compact) + '\n';
}
