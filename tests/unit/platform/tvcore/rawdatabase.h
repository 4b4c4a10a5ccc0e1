#pragma once

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <QVariant>

/// A connection of another program to a store, for tests.
class RawDatabase
{
public:
    explicit RawDatabase(const QString& path)
        : m_name(QStringLiteral("raw/%1").arg(reinterpret_cast<quintptr>(this)))
    {
        m_database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_name);
        m_database.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=0"));
        m_database.setDatabaseName(path);
        m_database.open();
    }
    ~RawDatabase()
    {
        m_database.close();
        m_database = QSqlDatabase();
        QSqlDatabase::removeDatabase(m_name);
    }
    RawDatabase(const RawDatabase&) = delete;
    RawDatabase& operator=(const RawDatabase&) = delete;

    bool run(const QString& sql)
    {
        QSqlQuery query(m_database);
        return query.exec(sql);
    }
    /// The first column of the first row; invalid when there is none.
    QVariant value(const QString& sql)
    {
        QSqlQuery query(m_database);
        return query.exec(sql) && query.next() ? query.value(0) : QVariant();
    }
    /// Keeps every other connection from reading until this object goes. Before anybody else has opened it.
    bool lockOut()
    {
        return run(QStringLiteral("PRAGMA locking_mode=EXCLUSIVE")) && run(QStringLiteral("BEGIN EXCLUSIVE"));
    }

private:
    const QString m_name;
    QSqlDatabase m_database;
};
