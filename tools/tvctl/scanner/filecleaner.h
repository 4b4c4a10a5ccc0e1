#pragma once

#include "tvctl/client/serviceconnection.h"
#include "tvctl/installation/installation.h"

#include <QString>

#include <optional>

/// Has the service remove files after it has put a copy of each into the quarantine.
///
/// The service does not look again whether a file is infected, and by its reply nobody can tell why nothing
/// was removed; this finds out as far as it can be seen from outside.
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

    Result clean(const QString& path);

    /// What the settings say; the store must be readable.
    static bool isReportOnlyStored();

    /// "removed", "report only", "not removed" or "unknown", for documents.
    static QString nameOf(Result::Kind kind);

private:
    Result explainNotRemoved() const;
    int copiesOf(const QString& path) const;

    ServiceConnection& m_connection;
    const Installation m_installation;
    const std::optional<bool> m_isReportOnly;
};
