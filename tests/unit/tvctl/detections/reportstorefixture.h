#pragma once

#include "platform/tvcore/tvcore.h"
#include "platform/tvcore/virusconfig.h"
#include "tvctl/installation/storeaccess.h"

#include <QTemporaryDir>
#include <QTest>

/// An installation with nothing but a store of detection records in a directory of its own.
class ReportStoreFixture
{
public:
    ReportStoreFixture() : m_installation(m_directory.path())
    {
        QDir(m_directory.path()).mkdir(QStringLiteral("settings"));
        StoreAccess::begin(m_installation);
    }
    ~ReportStoreFixture()
    {
        TvCore::setDirectory(QStringLiteral("/nonexistent"));
        qInstallMessageHandler(nullptr);
    }

    const Installation& installation() const
    {
        return m_installation;
    }
    QString storePath() const
    {
        return m_installation.settings() + QStringLiteral("/reports.db");
    }

    static QDateTime second(qint64 number)
    {
        constexpr qint64 start = 1790000000;
        return QDateTime::fromSecsSinceEpoch(start + number);
    }

    /// Its virus is named as its number, and so is its second.
    static VirusReport report(int number, const QString& path = QStringLiteral("/home/u/a"))
    {
        VirusReport report;
        report.setVirusName(QString::number(number));
        report.setFilePath(path);
        report.setFileName(path.section(QLatin1Char('/'), -1));
        report.setModuleName(QStringLiteral("tvfilemon"));
        report.setModuleVersion(QStringLiteral("1.0"));
        report.setDateTime(second(number));
        return report;
    }

    static void add(int first, int last)
    {
        VirusConfig config;
        for (int number = first; number <= last; ++number) {
            QVERIFY(config.addVirusReport(report(number)));
        }
    }

    static QStringList names(const QVector<VirusReport>& reports)
    {
        QStringList names;
        for (const VirusReport& each : reports) {
            names << each.getVirusName();
        }
        return names;
    }

private:
    QTemporaryDir m_directory;
    const Installation m_installation;
};
