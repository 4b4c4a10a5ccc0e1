#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include <sys/types.h>

/// What can be seen of an installation by the Debian package, beyond what any installation has: its units,
/// and the links from its root to where things change.
struct PackageFacts
{
    /// A unit, by the words of systemctl(1).
    struct Unit
    {
        QString name;
        QString loadState;
        QString fileState;
        QString activeState;
    };

    /// One of the root's entries that have to be links to directories of root.
    struct Link
    {
        /// What the package makes it point to, and with which mode at most.
        QString path;
        QString expectedTarget;
        mode_t expectedMode = 0;
        /// What is there: empty when it is no link.
        QString target;
        bool isDirectory = false;
        mode_t mode = 0;
        uid_t owner = 0;
    };

    /// Reads the output of `systemctl show` for several units. Pure.
    static QVector<Unit> parseUnits(const QByteArray& output);

    /// Looks at `root`, and asks systemd, for a few seconds at most.
    static PackageFacts gather(const QString& root);

    /// Whether the package is what is installed there, and an update of its signatures runs. Asks systemd
    /// likewise.
    static bool isUpdating(const QString& root);

    /// Whether the package is what is installed there.
    bool isPackage = false;
    /// Empty where no systemd runs, or does not answer.
    QVector<Unit> units;
    QVector<Link> links;
};
