#pragma once

#include "platform/tvcore/filestamp.h"
#include "platform/tvcore/storeconnection.h"
#include "platform/tvcore/storeerror.h"
#include "platform/tvcore/storeschema.h"

#include <QString>

#include <memory>

/// Opens one store file: makes it when missing, makes sure that it is one of ours and sound, brings its
/// schema up to date.
///
/// Does not wait for locks. Used under a DirectoryLock.
class StoreOpener
{
public:
    StoreOpener(const StoreSchema& schema, const QString& path);

    /// The open connection, null on failure; see `error`. A file that is refused is left as it is. A damaged
    /// one stays open until this object goes, so that it is set aside as it is: closing it would empty its
    /// log into it.
    std::unique_ptr<StoreConnection> open();

    const StoreError& error() const
    {
        return m_error;
    }
    /// The file that was opened, or that could not be.
    const FileStamp& stamp() const
    {
        return m_stamp;
    }

private:
    std::unique_ptr<StoreConnection> openIn(StoreConnection::Mode mode);
    bool prepare(StoreConnection& connection);
    bool fail(StoreError::Fault fault, const QString& text);
    bool failAs(const StoreConnection& connection);
    /// Says whether the file holds our schema, nothing at all yet (version 0), or something to keep off.
    bool examine(StoreConnection& connection, int& version);
    bool checkContent(StoreConnection& connection);
    bool configure(StoreConnection& connection);
    bool migrate(StoreConnection& connection);
    bool applyMigrations(StoreConnection& connection);

    const StoreSchema& m_schema;
    const QString m_path;
    FileStamp m_stamp;
    StoreError m_error;
    std::unique_ptr<StoreConnection> m_damaged;
};
