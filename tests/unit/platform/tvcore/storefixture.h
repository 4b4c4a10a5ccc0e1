#pragma once

#include "platform/tvcore/store.h"

#include <QDir>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

/// A store of numbers in a directory of its own, for tests of what all stores have in common.
class StoreFixture
{
public:
    static constexpr int pageSize = 4096;
    /// As many numbers as make a file larger than what is checked when it is opened.
    static constexpr int many = 600000;

    static StoreSchema firstVersion()
    {
        StoreSchema schema;
        schema.fileName = QStringLiteral("test.db");
        schema.applicationId = 0x54455354;
        schema.migrations = {QStringList{QStringLiteral("CREATE TABLE number(value INTEGER NOT NULL)")}};
        return schema;
    }
    static StoreSchema secondVersion()
    {
        StoreSchema schema = firstVersion();
        schema.migrations.append(
            QStringList{QStringLiteral("ALTER TABLE number ADD COLUMN note TEXT NOT NULL DEFAULT 'old'"),
                        QStringLiteral("CREATE INDEX number_by_value ON number(value)")});
        return schema;
    }

    StoreFixture()
    {
        start(firstVersion());
    }
    /// Goes on with another object, like a new process.
    void start(const StoreSchema& schema)
    {
        m_store = std::make_unique<Store>(schema);
        m_store->setDirectory(m_directory.path());
    }

    Store& store()
    {
        return *m_store;
    }
    QString directory() const
    {
        return m_directory.path();
    }
    QString path() const
    {
        return m_directory.filePath(QStringLiteral("test.db"));
    }
    /// The names of the files that were set aside, without those beside them.
    QStringList setAside() const
    {
        return QDir(directory())
            .entryList({QStringLiteral("test.db.corrupt-*Z"), QStringLiteral("test.db.corrupt-*Z-?")});
    }
    QByteArray content() const
    {
        QFile file(path());
        return file.open(QFile::ReadOnly) ? file.readAll() : QByteArray();
    }
    static QByteArray withFlippedPage(QByteArray content, int page)
    {
        for (int i = page * pageSize; i < (page + 1) * pageSize; ++i) {
            content[i] = static_cast<char>(~content.at(i));
        }
        return content;
    }
    void setContent(const QByteArray& content) const
    {
        QFile file(path());
        if (file.open(QFile::WriteOnly)) {
            file.write(content);
        }
    }

    bool add(int number)
    {
        return m_store->write([number](StoreConnection& connection) {
            return connection.execute(QStringLiteral("INSERT INTO number(value) VALUES(?)"), {number});
        });
    }
    bool addMany()
    {
        return m_store->write(
            [](StoreConnection& connection) {
                return connection.execute(
                    QStringLiteral("INSERT INTO number WITH RECURSIVE n(i) AS (SELECT 1 "
                                   "UNION ALL SELECT i + 1 FROM n WHERE i < ?) "
                                   "SELECT i FROM n"),
                    {many});
            },
            Store::Patience::Long);
    }
    /// -1 when it cannot be read.
    int count()
    {
        int result = -1;
        const bool isRead = m_store->read([&result](StoreConnection& connection) {
            return connection.select(
                QStringLiteral("SELECT count(*) FROM number"), {},
                [&result](const StoreRow& row) { result = static_cast<int>(row.integer(0)); });
        });
        return isRead ? result : -1;
    }

private:
    QTemporaryDir m_directory;
    std::unique_ptr<Store> m_store;
};
