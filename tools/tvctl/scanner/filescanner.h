#pragma once

#include "tvctl/client/serviceconnection.h"
#include "tvctl/files/treewalker.h"
#include "tvctl/scanner/exclusions.h"

#include <QString>

/// Has the service scan files, also those whose names its protocol does not carry.
class FileScanner
{
public:
    struct Result
    {
        enum class Kind
        {
            Clean,
            Infected,
            /// It was not scanned; see `problem`.
            Failed,
            /// It is not there any more.
            Gone,
            /// The connection is not open any more and tells why.
            NoService
        };

        Kind kind = Kind::Failed;
        QString virusName;
        QString problem;
    };

    /// `connection`, open, has to live as long. `exclusions` are those of the service, as far as they are
    /// known.
    FileScanner(ServiceConnection& connection, const Exclusions& exclusions);

    /// Scans the file that `walker` stands at.
    Result scan(const TreeWalker& walker);

private:
    Result scanOpened(const TreeWalker& walker, const QString& path, const QString& nameProblem);
    Result ask(const Request& request);

    ServiceConnection& m_connection;
    const Exclusions& m_exclusions;
};
