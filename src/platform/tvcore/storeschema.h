#pragma once

#include <QString>
#include <QStringList>
#include <QVector>
#include <QtGlobal>

/// What one store file holds, and how its older forms become the present one.
struct StoreSchema
{
    /// "tvcore.db": scan settings, the protection switch, exclusion lists, lists of known-bad hashes.
    static StoreSchema settings();
    /// "reports.db": detection records.
    static StoreSchema reports();
    /// "ioc-cache.db": the hashes of files, which may be lost.
    static StoreSchema hashCache();

    /// The version that this library reads and writes; the file carries its own in `user_version`.
    int version() const
    {
        return migrations.size();
    }

    QString fileName;
    /// Tells this suite's files from those of other programs; the file carries it in `application_id`.
    qint32 applicationId = 0;
    /// Element N holds the statements that bring version N to version N + 1; from an empty file on. What has
    /// been released is never edited: a change of the schema is a new element.
    QVector<QStringList> migrations;
    /// Whether a committed change must survive the loss of power.
    bool durable = true;
    /// How much of the file a process may keep in memory, in KiB; 2000 is SQLite's own measure.
    int cacheKib = 2000;
};
