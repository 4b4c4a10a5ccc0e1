#pragma once

#include <QString>

class QSqlError;

/// Why an operation on a store failed, as far as it matters for what to do next.
struct StoreError
{
    enum Fault
    {
        None,
        /// Another connection holds a lock: worth another try in a moment.
        Busy,
        /// The file's content is damaged. Never said of a file that is only locked or unreadable.
        Corrupt,
        /// Missing, unreadable, read-only, full, failing: nothing wrong with the content as far as known.
        Unavailable,
        /// Another program's database, or one that a newer release of the suite wrote.
        Refused
    };

    static StoreError of(const QSqlError& error);
    /// Of SQLite's result `code`, with its message.
    static StoreError ofSqlite(int code, const QString& text);
    /// With the text of the error number `error`.
    static StoreError ofErrno(const QString& what, int error);

    Fault fault = None;
    QString text;
};
