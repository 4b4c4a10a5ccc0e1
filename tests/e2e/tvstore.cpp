// Reads and writes the stores of an installation for the end-to-end tests, through the library that a user
// interface uses.
//
//   tvstore SETTINGS_DIR set JSON    {"protection": false, "action": 0, "archives": true, "heuristics": true,
//                                     "html": true, "documents": true, "swf": true, "pdf": true,
//                                     "exclude": {"0": ["/home/u/x"]}}; what is left out stays as it is
//   tvstore SETTINGS_DIR reports     the detection records as a JSON array
//
// Exit status 0 when all was done.

#include "platform/tvcore/protectionconfig.h"
#include "platform/tvcore/scanconfig.h"
#include "platform/tvcore/tvcore.h"
#include "platform/tvcore/virusconfig.h"

#include <QCoreApplication>
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
    return std::puts(QJsonDocument(array).toJson(QJsonDocument::Compact).constData()) >= 0;
}
} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 3) {
        std::fputs("usage: tvstore SETTINGS_DIR set JSON | reports\n", stderr);
        return 2;
    }
    TvCore::setDirectory(arguments[1]);
    if (arguments[2] == QLatin1String("reports")) {
        return printReports() ? 0 : 1;
    }
    const QJsonDocument document = QJsonDocument::fromJson(arguments.value(3).toUtf8());
    if (arguments[2] != QLatin1String("set") || !document.isObject()) {
        std::fputs("tvstore: neither \"reports\" nor \"set\" with a JSON object\n", stderr);
        return 2;
    }
    const QJsonObject wanted = document.object();
    return setProtection(wanted) && setScanSetting(wanted) && setExcludeLists(wanted) ? 0 : 1;
}
