#pragma once

#include "tvctl/client/serviceconnection.h"
#include "tvctl/files/treewalker.h"
#include "tvctl/scanner/exclusions.h"
#include "tvctl/scanner/scannedlinks.h"

#include <QString>

#include <optional>

#include <sys/stat.h>

/// Has the service scan files. What is scanned is the very file that the walker stands at, wherever its path
/// leads meanwhile, and a file with several names is scanned once.
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
            /// The same: somebody holds it by a lease, and has a while to let go of it from now on.
            Withheld,
            /// It is not there any more.
            Gone,
            /// The connection is not open any more and tells why.
            NoService
        };

        Kind kind = Kind::Failed;
        QString virusName;
        QString problem;
        /// The file that was scanned; nothing when all that is known is its path.
        std::optional<struct stat> scanned;
    };

    /// `connection`, open, has to live as long. `exclusions` are those of the service, as far as they are
    /// known.
    FileScanner(ServiceConnection& connection, const Exclusions& exclusions);

    /// Files are named by their paths, where the protocol carries them: the service cannot be handed
    /// anything, or only the service knows what is excluded. Others may have a path lead to another file
    /// meanwhile.
    void goByPath()
    {
        m_isByPath = true;
    }
    bool isByPath() const
    {
        return m_isByPath;
    }

    /// Scans the file that `walker` stands at.
    Result scan(const TreeWalker& walker);

private:
    Result scanPath(const TreeWalker& walker, const Request& request);
    Result scanOpened(const TreeWalker& walker);
    Result ask(const Request& request);

    ServiceConnection& m_connection;
    const Exclusions& m_exclusions;
    bool m_isByPath = false;
    ScannedLinks m_links;
};
