#pragma once

#include "tvctl/installation/installation.h"

#include <QByteArray>
#include <QString>

/// Advice is worded for the package, whose systemd units run everything. For an installation that no unit
/// runs, one that was built and staged by hand, this words it anew.
class LocalAdvice
{
public:
    /// Looks into the directories of systemd's units whether one runs the installation.
    explicit LocalAdvice(const Installation& installation);

    /// Likewise, with what was found out. Pure, as are the following.
    LocalAdvice(const Installation& installation, bool hasUnit);

    /// `advice`, with each systemctl command in it replaced by what does the same here.
    QString wordedFor(QString advice) const;

    /// Whether a unit file with that content starts `program`.
    static bool unitStarts(const QByteArray& unit, const QString& program);

private:
    Installation m_installation;
    bool m_hasUnit;
};
