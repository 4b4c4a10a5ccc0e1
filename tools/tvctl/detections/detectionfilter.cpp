#include "tvctl/detections/detectionfilter.h"

#include "common/filename.h"

#include <QRegularExpression>

#include <fnmatch.h>

void DetectionFilter::setVirus(const QString& pattern)
{
    static const QRegularExpression special(QStringLiteral("[*?[]"));
    m_virus = pattern;
    m_isGlob = pattern.contains(special);
}

void DetectionFilter::setPath(const QString& path)
{
    m_path = path;
}

bool DetectionFilter::matches(const VirusReport& report) const
{
    return matchesVirus(report.getVirusName()) && matchesPath(report.getFilePath());
}

bool DetectionFilter::matchesVirus(const QString& name) const
{
    if (m_isGlob) {
        // Qt's own takes a slash for the end of a directory, which it is not in the name of a virus.
        return ::fnmatch(FileName::toBytes(m_virus).constData(), FileName::toBytes(name).constData(),
                         FNM_CASEFOLD | FNM_NOESCAPE) == 0;
    }
    return name.contains(m_virus, Qt::CaseInsensitive);
}

bool DetectionFilter::matchesPath(const QString& path) const
{
    if (m_path.isEmpty() || path == m_path) {
        return true;
    }
    const QString directory = m_path.endsWith(QLatin1Char('/')) ? m_path : m_path + QLatin1Char('/');
    return path.startsWith(directory);
}
