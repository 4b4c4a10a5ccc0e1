#include "platform/tvcore/storeconnection.h"

#include "platform/tvcore/sleeplessfiles.h"

#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>

#include <utility>

#include <sqlite3.h>

namespace
{
QString nextConnectionName()
{
    static int number = 0;
    return QStringLiteral("tvcore/%1").arg(++number);
}

/// What Qt's driver works on. It uses the same copy of SQLite as this library: no other knows the files'
/// access that is registered here, without which nothing is opened.
sqlite3* handleOf(const QSqlDatabase& database)
{
    const QVariant handle = database.driver()->handle();
    return qstrcmp(handle.typeName(), "sqlite3*") == 0 ? *static_cast<sqlite3* const*>(handle.constData())
                                                       : nullptr;
}
} // namespace

StoreConnection::StoreConnection(const QString& path, Mode mode) : m_mode(mode), m_name(nextConnectionName())
{
    m_database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_name);
    QString options = QStringLiteral("QSQLITE_BUSY_TIMEOUT=0;QSQLITE_OPEN_URI");
    // With an empty authority: the path of a root that is / begins with two slashes, which would begin one.
    QString name = QStringLiteral("file://%1?vfs=%2")
                       .arg(QString::fromLatin1(QUrl::toPercentEncoding(path, "/")), SleeplessFiles::name());
    if (mode == Mode::Immutable) {
        options += QStringLiteral(";QSQLITE_OPEN_READONLY");
        name += QStringLiteral("&immutable=1");
    }
    m_database.setConnectOptions(options);
    m_database.setDatabaseName(name);
    if (!m_database.open()) {
        setError(StoreError::of(m_database.lastError()));
        return;
    }
    m_handle = handleOf(m_database);
}

StoreConnection::~StoreConnection()
{
    // Qt complains about a connection that is removed while a statement or a handle of it is left.
    m_statements.clear();
    m_database.close();
    m_database = QSqlDatabase();
    QSqlDatabase::removeDatabase(m_name);
}

bool StoreConnection::execute(const QString& sql, const QVariantList& values)
{
    return select(sql, values, nullptr);
}

bool StoreConnection::select(const QString& sql, const QVariantList& values,
                             const std::function<void(const StoreRow&)>& row)
{
    StoreStatement* statement = prepared(sql);
    if (statement == nullptr) {
        return false;
    }
    if (!statement->run(values, row)) {
        noteFailure();
        m_statements.erase(sql);
        return false;
    }
    m_affectedRows = sqlite3_changes(m_handle);
    m_error = {};
    return true;
}

bool StoreConnection::executeOnce(const QString& sql, QVariant* value)
{
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    if (query.exec(sql) && value != nullptr) {
        *value = query.next() ? query.value(0) : QVariant();
    }
    setError(StoreError::of(query.lastError()));
    return m_error.fault == StoreError::None;
}

bool StoreConnection::refuse(const QString& reason)
{
    m_error = {StoreError::Refused, reason};
    return false;
}

StoreStatement* StoreConnection::prepared(const QString& sql)
{
    const auto found = m_statements.find(sql);
    if (found != m_statements.end()) {
        return &found->second;
    }
    StoreStatement statement(m_handle, sql);
    if (!statement.isPrepared()) {
        noteFailure();
        return nullptr;
    }
    return &m_statements.emplace(sql, std::move(statement)).first->second;
}

void StoreConnection::noteFailure()
{
    setError(StoreError::ofSqlite(sqlite3_errcode(m_handle), QString::fromUtf8(sqlite3_errmsg(m_handle))));
}

void StoreConnection::setError(const StoreError& error)
{
    m_error = error;
    if (m_mode == Mode::Immutable && m_error.fault == StoreError::Corrupt) {
        // Read without locks, a sound file that somebody is writing after all looks damaged.
        m_error.fault = StoreError::Unavailable;
    }
}
