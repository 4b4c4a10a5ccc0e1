#pragma once

#include "platform/tvcore/tvcoreexport.h"

#include <QDateTime>
#include <QString>
#include <QtGlobal>

/// One detection, a plain value. A new one is empty, with clean status 0 and an invalid time.
class TVCORE_EXPORT VirusReport
{
public:
    VirusReport();

    /// The number of a stored record, never used again for another; 0 for one that did not come from the
    /// store.
    qint64 getId() const;

    /// The name alone, without its directory.
    QString getFileName() const;
    void setFileName(const QString& fileName);
    /// The full path.
    QString getFilePath() const;
    void setFilePath(const QString& filePath);
    QString getVirusName() const;
    void setVirusName(const QString& virusName);
    /// 0 cleaned, -1 report only, -2 allowed by the user, anything else: cleaning failed.
    int getCleanStatus() const;
    void setCleanStatus(int status);
    /// What found it, and its version.
    QString getModuleName() const;
    void setModuleName(const QString& moduleName);
    QString getModuleVersion() const;
    void setModuleVersion(const QString& moduleVersion);
    /// When. Kept with millisecond precision; a record from the store has it in local time.
    QDateTime getDateTime() const;
    void setDateTime(const QDateTime& dateTime);

private:
    friend class ReportStore;

    qint64 m_id = 0;
    QString m_fileName;
    QString m_filePath;
    QString m_virusName;
    int m_cleanStatus = 0;
    QString m_moduleName;
    QString m_moduleVersion;
    QDateTime m_dateTime;
};
