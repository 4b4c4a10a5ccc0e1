#include "platform/tvcore/virusreport.h"

VirusReport::VirusReport() = default;

qint64 VirusReport::getId() const
{
    return m_id;
}

QString VirusReport::getFileName() const
{
    return m_fileName;
}

void VirusReport::setFileName(const QString& fileName)
{
    m_fileName = fileName;
}

QString VirusReport::getFilePath() const
{
    return m_filePath;
}

void VirusReport::setFilePath(const QString& filePath)
{
    m_filePath = filePath;
}

QString VirusReport::getVirusName() const
{
    return m_virusName;
}

void VirusReport::setVirusName(const QString& virusName)
{
    m_virusName = virusName;
}

int VirusReport::getCleanStatus() const
{
    return m_cleanStatus;
}

void VirusReport::setCleanStatus(int status)
{
    m_cleanStatus = status;
}

QString VirusReport::getModuleName() const
{
    return m_moduleName;
}

void VirusReport::setModuleName(const QString& moduleName)
{
    m_moduleName = moduleName;
}

QString VirusReport::getModuleVersion() const
{
    return m_moduleVersion;
}

void VirusReport::setModuleVersion(const QString& moduleVersion)
{
    m_moduleVersion = moduleVersion;
}

QDateTime VirusReport::getDateTime() const
{
    return m_dateTime;
}

void VirusReport::setDateTime(const QDateTime& dateTime)
{
    m_dateTime = dateTime;
}
