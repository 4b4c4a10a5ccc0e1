#pragma once

#include "platform/tvcore/storeerror.h"

#include <QHash>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QVariant>

#include <functional>

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
                const std::function<void(const QSqlQuery&)>& row);
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
    QSqlQuery* prepared(const QString& sql);
    bool finish(const QString& sql, QSqlQuery& query);
    void setError(const QSqlError& error);

    const Mode m_mode;
    const QString m_name;
    QSqlDatabase m_database;
    QHash<QString, QSqlQuery> m_statements;
    StoreError m_error;
    int m_affectedRows = 0;
};
