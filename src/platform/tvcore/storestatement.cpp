#include "platform/tvcore/storestatement.h"

#include <sqlite3.h>

namespace
{
int bindValue(sqlite3_stmt* statement, int number, const QVariant& value)
{
    if (value.isNull()) {
        return sqlite3_bind_null(statement, number);
    }
    switch (static_cast<QMetaType::Type>(value.type())) {
    case QMetaType::QByteArray: {
        // Not copied: the value outlives the run.
        const auto& bytes = *static_cast<const QByteArray*>(value.constData());
        return sqlite3_bind_blob(statement, number, bytes.constData(), bytes.size(), SQLITE_STATIC);
    }
    case QMetaType::QString: {
        const QByteArray text = value.toString().toUtf8();
        return sqlite3_bind_text(statement, number, text.constData(), text.size(), SQLITE_TRANSIENT);
    }
    default:
        return sqlite3_bind_int64(statement, number, value.toLongLong());
    }
}
} // namespace

bool StoreRow::isNull(int column) const
{
    return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}

qint64 StoreRow::integer(int column) const
{
    return sqlite3_column_int64(m_statement, column);
}

QByteArray StoreRow::bytes(int column) const
{
    const auto* data = static_cast<const char*>(sqlite3_column_blob(m_statement, column));
    return QByteArray(data, sqlite3_column_bytes(m_statement, column));
}

void StoreStatement::Finalize::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

StoreStatement::StoreStatement(sqlite3* database, const QString& sql)
{
    const QByteArray text = sql.toUtf8();
    sqlite3_stmt* statement = nullptr;
    // With its terminating zero, which spares SQLite a copy.
    sqlite3_prepare_v3(database, text.constData(), text.size() + 1, SQLITE_PREPARE_PERSISTENT, &statement,
                       nullptr);
    m_statement.reset(statement);
}

bool StoreStatement::run(const QVariantList& values, const std::function<void(const StoreRow&)>& row)
{
    sqlite3_stmt* const statement = m_statement.get();
    int result = SQLITE_ERROR;
    if (bind(values)) {
        while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
            if (row != nullptr) {
                row(StoreRow(statement));
            }
        }
    }
    // Without this it would go on seeing the store as it is now, and keep the log from shrinking. What it
    // answers is the error of the run, if there was one.
    sqlite3_reset(statement);
    return result == SQLITE_DONE;
}

bool StoreStatement::bind(const QVariantList& values)
{
    for (int i = 0; i < values.size(); ++i) {
        if (bindValue(m_statement.get(), i + 1, values.at(i)) != SQLITE_OK) {
            return false;
        }
    }
    return true;
}
