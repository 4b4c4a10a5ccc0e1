#pragma once

#include "platform/tvcore/virusreport.h"

#include <QByteArray>
#include <QString>

/// Which records a person wants to see. A plain value; a new one takes all.
class DetectionFilter
{
public:
    /// Only those in whose virus name `pattern` occurs, or, if it holds one of "*?[", which it matches as a
    /// whole as it would match a file name in a shell. Case does not count.
    void setVirus(const QString& pattern);
    /// Only those of this file, or of files anywhere below this directory. Absolute and clean.
    void setPath(const QString& path);

    bool matches(const VirusReport& report) const;

private:
    bool matchesVirus(const QString& name) const;
    bool matchesPath(const QString& path) const;

    QString m_virus;
    bool m_isGlob = false;
    QString m_path;
};
