#pragma once

#include "tvctl/client/serviceconnection.h"
#include "tvctl/files/treewalker.h"
#include "tvctl/installation/installation.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

#include <sys/stat.h>

/// Has the service remove files after it has put a copy of each into the quarantine.
///
/// The service does not look again whether a file is infected, and by its reply nobody can tell why nothing
/// was removed; this finds out as far as it can be seen from outside.
///
/// The service is told a name in the directory that the walker holds, not a path: whoever may rename a
/// directory on the way could have root's file of that name removed. It calls the copy in the quarantine
/// after what it was told, so the copy is then given the name that it would have by the path, from which its
/// origin is known. A file whose name the protocol does not carry is renamed for it, and back again when it
/// was not removed.
class FileCleaner
{
public:
    struct Result
    {
        enum class Kind
        {
            Removed,
            /// The settings only allow reports; the service was not asked.
            ReportOnly,
            NotRemoved,
            /// The connection is not open any more and tells why.
            NoService
        };

        Kind kind = Kind::NotRemoved;
        /// What came of it, for people.
        QString text;
    };

    /// `connection`, open, has to live as long. `isReportOnly`: what the settings say, if they can be read.
    FileCleaner(ServiceConnection& connection, const Installation& installation,
                std::optional<bool> isReportOnly);

    /// Cleans the File at which `walker` stands, if it is still the one that `scanned` tells. Without
    /// `scanned` the service is told the path, and only if nobody else can have it lead elsewhere.
    Result clean(const TreeWalker& walker, const std::optional<struct stat>& scanned);

    /// What the settings say; the store must be readable.
    static bool isReportOnlyStored();

    /// "removed", "report only", "not removed" or "unknown", for documents.
    static QString nameOf(Result::Kind kind);

private:
    /// A file that is to be removed.
    struct Task
    {
        /// What the service is told.
        QByteArray told;
        /// Its name in the directory that the walker holds.
        QByteArray name;
        struct stat file = {};
        UniqueFd original;
    };

    Result cleanRenamed(Task& task, const QByteArray& directory, const TreeWalker& walker);
    Result cleanAs(const Task& task, const Request& request, const TreeWalker& walker);
    QString explainNotRemoved() const;
    std::optional<QStringList> copiesOf(const QByteArray& path) const;
    std::optional<QString> newCopyOf(const QByteArray& path, const std::optional<QStringList>& before) const;
    void removeCopy(const QByteArray& told, const std::optional<QStringList>& before) const;
    QString tellCopy(const QByteArray& told, const QByteArray& path, int original,
                     const std::optional<QStringList>& before) const;

    ServiceConnection& m_connection;
    const Installation m_installation;
    const std::optional<bool> m_isReportOnly;
};
