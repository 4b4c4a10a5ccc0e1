#include "platform/tvcore/hashcachestore.h"

#include "platform/tvcore/storetext.h"
#include "platform/tvcore/storetime.h"

namespace
{
/// In UTC: the system looks at the time zone's file for each conversion to local time.
QDateTime fetchedTime(const StoreRow& row, int column)
{
    return row.isNull(column) ? QDateTime() : QDateTime::fromMSecsSinceEpoch(row.integer(column), Qt::UTC);
}

QVariant toBoundText(const QString& text)
{
    return text.isNull() ? QVariant(QVariant::ByteArray) : QVariant(StoreText::toBound(text));
}

/// A null text for NULL.
QString fetchedNullableText(const StoreRow& row, int column)
{
    return row.isNull(column) ? QString() : StoreText::fromFetched(row.bytes(column));
}

/// The values of a record, the path last.
QVariantList toBound(const FileIOCInfo& info)
{
    return {info.getFileSize(),
            StoreTime::toBound(info.getFileCreateDate()),
            StoreTime::toBound(info.getFileModDate()),
            toBoundText(info.getFileMD5()),
            toBoundText(info.getFileSHA1()),
            toBoundText(info.getFileSHA256()),
            toBoundText(info.getFileSign()),
            StoreText::toBound(info.getFilePath())};
}
} // namespace

HashCacheStore::HashCacheStore() : m_store(StoreSchema::hashCache())
{
}

void HashCacheStore::setDirectory(const QString& directory)
{
    m_store.setDirectory(directory);
}

void HashCacheStore::close()
{
    m_store.close();
}

bool HashCacheStore::find(const QString& path, FileIOCInfo& info)
{
    bool isFound = false;
    FileIOCInfo stored;
    const bool isRead = m_store.read([&path, &isFound, &stored](StoreConnection& connection) {
        isFound = false;
        return connection.select(
            QStringLiteral("SELECT size, created_at, modified_at, CAST(md5 AS BLOB), CAST(sha1 AS BLOB), "
                           "CAST(sha256 AS BLOB), CAST(sign AS BLOB) FROM file_ioc_info "
                           "WHERE path = CAST(? AS TEXT)"),
            {StoreText::toBound(path)}, [&path, &isFound, &stored](const StoreRow& row) {
                isFound = true;
                stored.setFilePath(path);
                stored.setFileSize(row.integer(0));
                stored.setFileCreateDate(fetchedTime(row, 1));
                stored.setFileModDate(fetchedTime(row, 2));
                stored.setFileMD5(fetchedNullableText(row, 3));
                stored.setFileSHA1(fetchedNullableText(row, 4));
                stored.setFileSHA256(fetchedNullableText(row, 5));
                stored.setFileSign(fetchedNullableText(row, 6));
            });
    });
    if (!isRead || !isFound) {
        return false;
    }
    info = stored;
    return true;
}

bool HashCacheStore::add(const FileIOCInfo& info)
{
    return m_store.write([&info](StoreConnection& connection) {
        return connection.execute(
            QStringLiteral(
                "REPLACE INTO file_ioc_info(size, created_at, modified_at, md5, sha1, sha256, sign, "
                "path) VALUES(?, ?, ?, CAST(? AS TEXT), CAST(? AS TEXT), CAST(? AS TEXT), "
                "CAST(? AS TEXT), CAST(? AS TEXT))"),
            toBound(info));
    });
}

bool HashCacheStore::update(const FileIOCInfo& info)
{
    bool isFound = false;
    const bool isStored = m_store.write([&info, &isFound](StoreConnection& connection) {
        const bool isDone = connection.execute(
            QStringLiteral("UPDATE file_ioc_info SET size = ?, created_at = ?, modified_at = ?, "
                           "md5 = CAST(? AS TEXT), sha1 = CAST(? AS TEXT), sha256 = CAST(? AS TEXT), "
                           "sign = CAST(? AS TEXT) WHERE path = CAST(? AS TEXT)"),
            toBound(info));
        isFound = isDone && connection.affectedRows() == 1;
        return isDone;
    });
    return isStored && isFound;
}

qint64 HashCacheStore::count()
{
    qint64 number = -1;
    const bool isRead = m_store.read([&number](StoreConnection& connection) {
        return connection.select(QStringLiteral("SELECT count(*) FROM file_ioc_info"), {},
                                 [&number](const StoreRow& row) { number = row.integer(0); });
    });
    return isRead ? number : -1;
}

bool HashCacheStore::clear()
{
    return m_store.write(
        [](StoreConnection& connection) {
            return connection.execute(QStringLiteral("DELETE FROM file_ioc_info"));
        },
        Store::Patience::Long);
}
