#pragma once

#include <QString>

/// Where everything of an installation of the service lies. A plain value; nothing is created or looked at.
class Installation
{
public:
    /// `root` is the directory that holds "bin", "db" and the others.
    explicit Installation(const QString& root);

    /// The one that this program belongs to, found from its own place as the service does.
    static Installation own();

    QString root() const
    {
        return m_root;
    }
    QString program() const
    {
        return m_root + QStringLiteral("/bin/tvfilemon");
    }
    QString databases() const
    {
        return m_root + QStringLiteral("/db");
    }
    QString settings() const
    {
        return m_root + QStringLiteral("/settings");
    }
    QString quarantine() const
    {
        return m_root + QStringLiteral("/quarantine");
    }
    QString reports() const
    {
        return m_root + QStringLiteral("/reports");
    }
    QString logs() const
    {
        return m_root + QStringLiteral("/logs");
    }
    QString logFile() const
    {
        return logs() + QStringLiteral("/tvfilemon.log");
    }
    /// What tvfilemon-update wrote last; see UpdateStatus.
    QString updateStatusFile() const
    {
        return m_root + QStringLiteral("/upd/status");
    }

private:
    QString m_root;
};
