#include "platform/tvcore/storeerror.h"

#include <QSqlError>

#include <cstring>

namespace
{
// SQLite's primary result codes, which its file format and interface fix for good.
enum SqliteCode
{
    sqliteBusy = 5,
    sqliteLocked = 6,
    sqliteCorrupt = 11,
    sqliteProtocol = 15,
    sqliteSchema = 17,
    sqliteNotADatabase = 26
};
constexpr int primaryCodeMask = 0xff;
} // namespace

StoreError StoreError::of(const QSqlError& error)
{
    if (!error.isValid()) {
        return {};
    }
    return ofSqlite(error.nativeErrorCode().toInt(),
                    error.databaseText().isEmpty() ? error.text() : error.databaseText());
}

StoreError StoreError::ofSqlite(int code, const QString& text)
{
    switch (code & primaryCodeMask) {
    case sqliteBusy:
    case sqliteLocked:
    case sqliteProtocol: // lost a race for the write-ahead log's locks
    case sqliteSchema:   // another process changed the schema between two attempts to prepare
        return {Busy, text};
    case sqliteCorrupt:
    case sqliteNotADatabase:
        return {Corrupt, text};
    default:
        return {Unavailable, text};
    }
}

StoreError StoreError::ofErrno(const QString& what, int error)
{
    return {Unavailable, QStringLiteral("%1: %2").arg(what, QString::fromLocal8Bit(std::strerror(error)))};
}
