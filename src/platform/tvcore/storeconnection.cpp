#include "platform/tvcore/storeconnection.h"

#include "platform/tvcore/sleeplessfiles.h"

#include <QSqlError>
#include <QUrl>

namespace
{
QString nextConnectionName()
{
    static int number = 0;
    return QStringLiteral("tvcore/%1").arg(++number);
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
        setError(m_database.lastError());
    }
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
                             const std::function<void(const QSqlQuery&)>& row)
{
    QSqlQuery* query = prepared(sql);
    if (query == nullptr) {
        return false;
    }
    for (int i = 0; i < values.size(); ++i) {
        query->bindValue(i, values.at(i));
    }
    if (query->exec()) {
        if (row != nullptr) {
            while (query->next()) {
                row(*query);
            }
        } else {
            m_affectedRows = query->numRowsAffected();
        }
    }
    return finish(sql, *query);
}

bool StoreConnection::executeOnce(const QString& sql, QVariant* value)
{
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    if (query.exec(sql) && value != nullptr) {
        *value = query.next() ? query.value(0) : QVariant();
    }
    setError(query.lastError());
    return m_error.fault == StoreError::None;
}

bool StoreConnection::refuse(const QString& reason)
{
    m_error = {StoreError::Refused, reason};
    return false;
}

QSqlQuery* StoreConnection::prepared(const QString& sql)
{
    auto found = m_statements.find(sql);
    if (found == m_statements.end()) {
        QSqlQuery query(m_database);
        query.setForwardOnly(true);
        if (!query.prepare(sql)) {
            setError(query.lastError());
            return nullptr;
        }
        found = m_statements.insert(sql, query);
    }
    return &found.value();
}

bool StoreConnection::finish(const QString& sql, QSqlQuery& query)
{
    // A failure in the middle of the rows shows only here: next() answers false as at the end.
    if (query.lastError().isValid()) {
        setError(query.lastError());
        m_statements.remove(sql);
        return false;
    }
    // Without this the statement would go on seeing the store as it is now, and keep the log from shrinking.
    query.finish();
    m_error = {};
    return true;
}

void StoreConnection::setError(const QSqlError& error)
{
    m_error = StoreError::of(error);
    if (m_mode == Mode::Immutable && m_error.fault == StoreError::Corrupt) {
        // Read without locks, a sound file that somebody is writing after all looks damaged.
        m_error.fault = StoreError::Unavailable;
    }
}
