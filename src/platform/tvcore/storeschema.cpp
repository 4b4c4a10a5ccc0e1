#include "platform/tvcore/storeschema.h"

namespace
{
// "TVst", "TVrp" and "TVhc" in ASCII, which is what file(1) and a hex dump show.
constexpr qint32 settingsApplicationId = 0x54567374;
constexpr qint32 reportsApplicationId = 0x54567270;
constexpr qint32 hashCacheApplicationId = 0x54566863;
} // namespace

StoreSchema StoreSchema::settings()
{
    StoreSchema schema;
    schema.fileName = QStringLiteral("tvcore.db");
    schema.applicationId = settingsApplicationId;
    schema.migrations = {
        // An absent setting has its default. A row of exclude_list says that the list was ever written, so
        // that a list made empty differs from one that nobody touched.
        QStringList{
            QStringLiteral("CREATE TABLE setting("
                           "name TEXT PRIMARY KEY NOT NULL, value INTEGER NOT NULL) STRICT, WITHOUT ROWID"),
            QStringLiteral("CREATE TABLE exclude_list(list INTEGER PRIMARY KEY NOT NULL) STRICT"),
            QStringLiteral("CREATE TABLE exclude_entry(list INTEGER NOT NULL, path TEXT NOT NULL,"
                           "PRIMARY KEY(list, path)) STRICT, WITHOUT ROWID"),
            // Likewise. The hashes of a list are those of its chunks by ascending id; see PackedTexts. They
            // come last in the row: who wants the rest does not read them.
            QStringLiteral("CREATE TABLE ioc_list(list INTEGER PRIMARY KEY NOT NULL) STRICT"),
            QStringLiteral("CREATE TABLE ioc_hash_chunk("
                           "id INTEGER PRIMARY KEY NOT NULL,"
                           "list INTEGER NOT NULL,"
                           "hash_count INTEGER NOT NULL,"
                           "hashes BLOB NOT NULL) STRICT"),
            QStringLiteral("CREATE INDEX ioc_hash_chunk_by_list ON ioc_hash_chunk(list, hash_count)")}};
    return schema;
}

StoreSchema StoreSchema::reports()
{
    StoreSchema schema;
    schema.fileName = QStringLiteral("reports.db");
    schema.applicationId = reportsApplicationId;
    // The service only adds to it, for months: that needs the last pages and no others.
    schema.cacheKib = 64;
    schema.migrations = {
        // detected_at: milliseconds since 1970 in UTC, NULL for a record without a valid time.
        // AUTOINCREMENT: the number of a removed record is not given to another.
        QStringList{QStringLiteral("CREATE TABLE virus_report("
                                   "id INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL,"
                                   "detected_at INTEGER,"
                                   "file_name TEXT NOT NULL,"
                                   "file_path TEXT NOT NULL,"
                                   "virus_name TEXT NOT NULL,"
                                   "clean_status INTEGER NOT NULL,"
                                   "module_name TEXT NOT NULL,"
                                   "module_version TEXT NOT NULL) STRICT"),
                    QStringLiteral("CREATE INDEX virus_report_by_time ON virus_report(detected_at)")}};
    return schema;
}

StoreSchema StoreSchema::hashCache()
{
    StoreSchema schema;
    schema.fileName = QStringLiteral("ioc-cache.db");
    schema.applicationId = hashCacheApplicationId;
    schema.durable = false;
    schema.migrations = {// The times in milliseconds since 1970 in UTC, NULL for an invalid one.
                         QStringList{QStringLiteral("CREATE TABLE file_ioc_info("
                                                    "path TEXT PRIMARY KEY NOT NULL,"
                                                    "size INTEGER NOT NULL,"
                                                    "created_at INTEGER,"
                                                    "modified_at INTEGER,"
                                                    "md5 TEXT,"
                                                    "sha1 TEXT,"
                                                    "sha256 TEXT,"
                                                    "sign TEXT) STRICT, WITHOUT ROWID")}};
    return schema;
}
