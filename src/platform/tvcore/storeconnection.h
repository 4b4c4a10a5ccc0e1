#pragma once

#include "platform/tvcore/storeerror.h"
#include "platform/tvcore/storestatement.h"

#include <QSqlDatabase>
#include <QString>
#include <QVariant>

#include <functional>
#include <unordered_map>

/// One open database connection with its prepared statements.
///
/// Belongs to the thread that made it. Never waits for a lock: who uses it decides how long to go on trying.
class StoreConnection
{
public:
    enum class Mode
    {
        ReadWrite,
        /// For a file that nobody can change as long as it lies on a read-only file system: needs neither
        /// locks nor the files beside it.
        Immutable
    };

    /// Opens `path`, without looking at what is in it; see `lastError`.
    StoreConnection(const QString& path, Mode mode);
    ~StoreConnection();
    StoreConnection(const StoreConnection&) = delete;
    StoreConnection& operator=(const StoreConnection&) = delete;

    Mode mode() const
    {
        return m_mode;
    }

    /// Runs `sql` with `values` for its placeholders. The statement is kept for the next time.
    bool execute(const QString& sql, const QVariantList& values = {});
    /// Likewise, and calls `row` for every row of the result. Holds no lock once it has returned.
    bool select(const QString& sql, const QVariantList& values,
                const std::function<void(const StoreRow&)>& row);
    /// For a statement that is not needed again. The first column of its first row goes to `value`.
    bool executeOnce(const QString& sql, QVariant* value = nullptr);
    /// How many rows the last `execute` changed.
    int affectedRows() const
    {
        return m_affectedRows;
    }

    /// Makes the present operation fail because of what was read: `reason` becomes the last error. Returns
    /// false.
    bool refuse(const QString& reason);

    /// Of the last operation, the opening included.
    const StoreError& lastError() const
    {
        return m_error;
    }

private:
    /// The prepared statement `sql`; null when it cannot be prepared.
    StoreStatement* prepared(const QString& sql);
    /// Of the last operation on the database.
    void noteFailure();
    void setError(const StoreError& error);

    const Mode m_mode;
    const QString m_name;
    QSqlDatabase m_database;
    /// The same, in SQLite's terms; null when it is not open.
    sqlite3* m_handle = nullptr;
    std::unordered_map<QString, StoreStatement> m_statements;
    StoreError m_error;
    int m_affectedRows = 0;
};
