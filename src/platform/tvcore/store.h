#pragma once

#include "platform/tvcore/filestamp.h"
#include "platform/tvcore/storeconnection.h"
#include "platform/tvcore/storeerror.h"
#include "platform/tvcore/storefiles.h"
#include "platform/tvcore/storeschema.h"

#include <QElapsedTimer>
#include <QString>

#include <functional>
#include <memory>

/// One store file of the library, whatever becomes of it.
///
/// Opens it when it is first needed, and anew when somebody replaced or removed it. Waits a moment while
/// another process holds a lock, but not again and again while the lock stays. Sets a damaged file aside and
/// starts a new one. Says in the log once when it stops or starts to work.
///
/// Belongs to the thread of the application object.
class Store
{
public:
    /// Does something with the store; false when a statement failed. May be called several times for one
    /// result, so it starts its output afresh.
    using Work = std::function<bool(StoreConnection&)>;

    /// How long to go on trying while another process holds a lock.
    enum class Patience
    {
        /// Up to 100 ms, and not at all while the lock stays: for what the service does between two file
        /// events.
        Brief,
        /// Up to two seconds: for what a user asked for and would have to ask for again.
        Long
    };

    explicit Store(StoreSchema schema);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /// Where the file lies from the next opening on; empty stands for the installation's settings directory.
    void setDirectory(const QString& directory);

    /// Runs `work`, a single statement, or several that need not see the same state. False when it failed.
    bool read(const Work& work);
    /// Runs `work` in a transaction. False when nothing was changed.
    bool write(const Work& work, Patience patience = Patience::Brief);

    /// What the last `read` answered; true before the first.
    bool couldRead() const
    {
        return m_noted[Read] == StoreError::None;
    }

    void close();

private:
    enum Access
    {
        Read,
        Write,
        AccessCount
    };

    bool run(Access access, const Work& work, Patience patience);
    StoreError attempt(Access access, const Work& work);
    StoreError inTransaction(const Work& work);
    /// True when the open connection is to a file that is no longer the store.
    bool isOutdated() const;
    /// Closes such a connection so that nothing of it gets into the new store.
    StoreError leaveOutdated();
    StoreError open();
    StoreError openUnderLock(const QString& directory);
    /// The open connection has met damage.
    StoreError replaceDamaged(const QString& damage);
    /// These two under a DirectoryLock.
    StoreError moveAside(const QString& damage);
    void moveLeftovers();
    void note(Access access, const StoreError& error);

    const StoreSchema m_schema;
    QString m_directory;
    QString m_path;
    std::unique_ptr<StoreConnection> m_connection;
    /// Of the open file, or of the one that could not be opened.
    FileStamp m_stamp;
    StoreFiles::Companions m_companions;
    /// When it was opened, or that failed.
    QElapsedTimer m_opened;
    /// Why there is no connection.
    StoreError m_openError;
    int m_setAsideCount = 0;
    /// What was said last about each access.
    StoreError::Fault m_noted[AccessCount] = {StoreError::None, StoreError::None};
    QElapsedTimer m_waited[AccessCount];
    /// When the last transaction ended.
    QElapsedTimer m_written;
};
