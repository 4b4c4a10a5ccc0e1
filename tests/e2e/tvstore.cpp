// Reads and writes the stores of an installation for the end-to-end tests, through the library that a user
// interface uses.
//
//   tvstore SETTINGS_DIR set JSON    {"protection": false, "action": 0, "archives": true, "heuristics": true,
//                                     "html": true, "documents": true, "swf": true, "pdf": true,
//                                     "exclude": {"0": ["/home/u/x"]}, "ioc": true, "iocAction": 1,
//                                     "iocHashes": {"2": ["ab12"]}}; what is left out stays as it is
//   tvstore SETTINGS_DIR reports     the detection records as a JSON array
//   tvstore SETTINGS_DIR add         adds the detection records of a JSON array on standard input, in order:
//                                    [{"path": "/home/u/x", "virus": "Test", "status": 0, "msecs": 17,
//                                    "module":
//                                      "tvfilemon", "version": "1"}]; without "msecs" one without a time;
//                                      with
//                                    "base64" in the place of "path" one whose path is any bytes
//   tvstore SETTINGS_DIR cached PATH what the hash cache knows of a file as a JSON object, {} for nothing;
//                                    a hash or a date that is not there is null
//
// Exit status 0 when all was done.

#include "common/filename.h"
#include "platform/tvcore/fileiocinfo.h"
#include "platform/tvcore/iocdatabaseconfig.h"
#include "platform/tvcore/iocscanconfig.h"
#include "platform/tvcore/protectionconfig.h"
#include "platform/tvcore/scanconfig.h"
#include "platform/tvcore/tvcore.h"
#include "platform/tvcore/virusconfig.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace
{
bool setProtection(const QJsonObject& wanted)
{
    const QString key = QStringLiteral("protection");
    return !wanted.contains(key) || ProtectionConfig().setOnlineProtectionEnabled(wanted[key].toBool());
}

bool setScanSetting(const QJsonObject& wanted)
{
    ScanConfig config;
    ScanSetting setting = config.getScanSetting();
    if (wanted.contains(QStringLiteral("action"))) {
        setting.setScanActionSetting(wanted[QStringLiteral("action")].toInt());
    }
    using Setter = void (ScanSetting::*)(bool);
    const QPair<QString, Setter> switches[] = {
        {QStringLiteral("archives"), &ScanSetting::setScanArchiveFilesEnabled},
        {QStringLiteral("heuristics"), &ScanSetting::setScanHeuristicEnabled},
        {QStringLiteral("html"), &ScanSetting::setScanHTMLFilesEnabled},
        {QStringLiteral("documents"), &ScanSetting::setScanDOCFilesEnabled},
        {QStringLiteral("swf"), &ScanSetting::setScanSWFFilesEnabled},
        {QStringLiteral("pdf"), &ScanSetting::setScanPDFFilesEnabled},
    };
    for (const auto& [key, setter] : switches) {
        if (wanted.contains(key)) {
            (setting.*setter)(wanted[key].toBool());
        }
    }
    return config.setScanSetting(setting);
}

bool setExcludeLists(const QJsonObject& wanted)
{
    ScanConfig config;
    const QJsonObject lists = wanted[QStringLiteral("exclude")].toObject();
    bool ok = true;
    for (auto list = lists.begin(); list != lists.end(); ++list) {
        QSet<QString> paths;
        const QJsonArray entries = list.value().toArray();
        for (const QJsonValue& entry : entries) {
            paths.insert(entry.toString());
        }
        ok = config.setExcludeList(list.key().toInt(), paths) && ok;
    }
    return ok;
}

bool setIocSettings(const QJsonObject& wanted)
{
    IOCScanConfig config;
    IOCScanSettings settings = config.getScanSettings();
    if (wanted.contains(QStringLiteral("ioc"))) {
        settings.setEnable(wanted[QStringLiteral("ioc")].toBool());
    }
    if (wanted.contains(QStringLiteral("iocAction"))) {
        settings.setAction(wanted[QStringLiteral("iocAction")].toInt());
    }
    return config.setScanSettings(settings);
}

bool setIocHashes(const QJsonObject& wanted)
{
    IOCScanConfig config;
    const QJsonObject lists = wanted[QStringLiteral("iocHashes")].toObject();
    bool ok = true;
    for (auto list = lists.begin(); list != lists.end(); ++list) {
        QStringList hashes;
        const QJsonArray entries = list.value().toArray();
        for (const QJsonValue& entry : entries) {
            hashes.append(entry.toString());
        }
        const auto type = static_cast<IOCScanConfig::HASH_TYPE>(list.key().toInt());
        ok = config.setHashList(type, hashes) && ok;
    }
    return ok;
}

QJsonValue toJson(const QDateTime& date)
{
    return date.isValid() ? QJsonValue(static_cast<double>(date.toMSecsSinceEpoch())) : QJsonValue();
}

QJsonValue toJson(const QString& text)
{
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

bool print(const QJsonDocument& document)
{
    return std::puts(document.toJson(QJsonDocument::Compact).constData()) >= 0;
}

bool printCached(const QString& path)
{
    FileIOCInfo info;
    if (!IOCDatabaseConfig().getFileIOCInfo(path, info)) {
        return print(QJsonDocument(QJsonObject()));
    }
    return print(QJsonDocument(QJsonObject{
        {QStringLiteral("path"), info.getFilePath()},
        {QStringLiteral("size"), static_cast<double>(info.getFileSize())},
        {QStringLiteral("created"), toJson(info.getFileCreateDate())},
        {QStringLiteral("modified"), toJson(info.getFileModDate())},
        {QStringLiteral("md5"), toJson(info.getFileMD5())},
        {QStringLiteral("sha1"), toJson(info.getFileSHA1())},
        {QStringLiteral("sha256"), toJson(info.getFileSHA256())},
        {QStringLiteral("sign"), info.getFileSign()},
    }));
}

bool addReports()
{
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly)) {
        return false;
    }
    const QJsonDocument document = QJsonDocument::fromJson(input.readAll());
    VirusConfig config;
    const QJsonArray array = document.array();
    bool ok = document.isArray();
    for (const QJsonValue& value : array) {
        const QByteArray bytes = QByteArray::fromBase64(value[QLatin1String("base64")].toString().toLatin1());
        const QString path =
            bytes.isEmpty() ? value[QLatin1String("path")].toString() : FileName::toText(bytes);
        VirusReport report;
        report.setFilePath(path);
        report.setFileName(path.mid(path.lastIndexOf(QLatin1Char('/')) + 1));
        report.setVirusName(value[QLatin1String("virus")].toString());
        report.setCleanStatus(value[QLatin1String("status")].toInt());
        report.setModuleName(value[QLatin1String("module")].toString());
        report.setModuleVersion(value[QLatin1String("version")].toString());
        const QJsonValue time = value[QLatin1String("msecs")];
        if (time.isDouble()) {
            report.setDateTime(QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(time.toDouble())));
        }
        ok = config.addVirusReport(report) && ok;
    }
    return ok;
}

bool printReports()
{
    QJsonArray array;
    QVector<VirusReport> reports;
    const VirusConfig config;
    qint64 last = 0;
    do {
        if (!config.getVirusReports(QDateTime(), QDateTime(), reports, last)) {
            return false;
        }
        for (const VirusReport& report : qAsConst(reports)) {
            last = report.getId();
            array.append(QJsonObject{
                {QStringLiteral("fileName"), report.getFileName()},
                {QStringLiteral("filePath"), report.getFilePath()},
                {QStringLiteral("virusName"), report.getVirusName()},
                {QStringLiteral("cleanStatus"), report.getCleanStatus()},
                {QStringLiteral("moduleName"), report.getModuleName()},
                {QStringLiteral("moduleVersion"), report.getModuleVersion()},
                {QStringLiteral("msecs"), static_cast<double>(report.getDateTime().toMSecsSinceEpoch())},
            });
        }
    } while (!reports.isEmpty());
    return print(QJsonDocument(array));
}
} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 3) {
        std::fputs("usage: tvstore SETTINGS_DIR set JSON | reports | add | cached PATH\n", stderr);
        return 2;
    }
    TvCore::setDirectory(arguments[1]);
    if (arguments[2] == QLatin1String("reports")) {
        return printReports() ? 0 : 1;
    }
    if (arguments[2] == QLatin1String("add")) {
        return addReports() ? 0 : 1;
    }
    if (arguments[2] == QLatin1String("cached") && arguments.size() == 4) {
        return printCached(arguments[3]) ? 0 : 1;
    }
    const QJsonDocument document = QJsonDocument::fromJson(arguments.value(3).toUtf8());
    if (arguments[2] != QLatin1String("set") || !document.isObject()) {
        std::fputs(
            "tvstore: neither \"reports\", \"add\", \"cached\" with a path nor \"set\" with a JSON object\n",
            stderr);
        return 2;
    }
    const QJsonObject wanted = document.object();
    const bool ok = setProtection(wanted) && setScanSetting(wanted) && setExcludeLists(wanted) &&
                    setIocSettings(wanted) && setIocHashes(wanted);
    return ok ? 0 : 1;
}
