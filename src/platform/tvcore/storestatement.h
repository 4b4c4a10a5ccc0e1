#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <functional>
#include <memory>

struct sqlite3;
struct sqlite3_stmt;

/// The row at which a statement stands. Only good while it is handed over.
class StoreRow
{
public:
    explicit StoreRow(sqlite3_stmt* statement) : m_statement(statement)
    {
    }

    bool isNull(int column) const;
    /// 0 for NULL.
    qint64 integer(int column) const;
    /// Of a text or a blob; a copy. Empty for NULL.
    QByteArray bytes(int column) const;

private:
    sqlite3_stmt* m_statement;
};

/// A prepared statement of an open database.
///
/// By SQLite's own interface, and not by Qt's, which describes all columns anew each time a statement runs:
/// that took longer than all that SQLite does to find and rewrite one record. Belongs to the thread of the
/// database, and must go before it is closed.
class StoreStatement
{
public:
    /// See `isPrepared`; when it cannot be, the database has the error.
    StoreStatement(sqlite3* database, const QString& sql);

    bool isPrepared() const
    {
        return m_statement != nullptr;
    }

    /// Runs it to its end with `values` for its placeholders (whole numbers, texts, bytes or NULL), and calls
    /// `row`, which may be null, for each row. Holds no lock afterwards. False when it failed: the database
    /// has the error.
    bool run(const QVariantList& values, const std::function<void(const StoreRow&)>& row);

private:
    struct Finalize
    {
        void operator()(sqlite3_stmt* statement) const;
    };

    bool bind(const QVariantList& values);

    std::unique_ptr<sqlite3_stmt, Finalize> m_statement;
};
