#include "platform/tvcore/storeopener.h"

#include "platform/tvcore/storefiles.h"

#include <QCoreApplication>
#include <QRegularExpression>

#include <utility>

#include <sqlite3.h>

namespace
{
/// The whole of a file up to this size is checked when it is opened, which takes a few milliseconds. Damage
/// in a larger one is noticed by the first statement that meets it.
constexpr qint64 maxCheckedSize = 4LL * 1024 * 1024;
/// A log that a large change made longer than this is cut back with the next change: the service keeps its
/// stores open, so the log would stay on the disk for good.
constexpr int maxIdleLogSize = 4 * 1024 * 1024;

/// Whether the check of a file found only that a page cannot be had, for want of memory or because the disk
/// does not give it, which says nothing of its content: "Page 2: unable to get the page. error code=266", and
/// without the code where a long value goes on: "Tree 2 page 3 cell 0: failed to get page 4".
bool isAboutReading(const QString& finding)
{
    static const QRegularExpression errorCode(QStringLiteral("\\berror code=(\\d+)"));
    const QRegularExpressionMatch match = errorCode.match(finding);
    // The upper bits tell which kind of it.
    return finding.contains(QLatin1String("failed to get page ")) ||
           (match.hasMatch() && (match.captured(1).toInt() & 0xff) != SQLITE_CORRUPT);
}
} // namespace

StoreOpener::StoreOpener(const StoreSchema& schema, const QString& path) : m_schema(schema), m_path(path)
{
}

std::unique_ptr<StoreConnection> StoreOpener::open()
{
    if (QCoreApplication::instance() == nullptr) {
        fail(StoreError::Unavailable, QStringLiteral("no application object"));
        return nullptr;
    }
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QSQLITE"))) {
        fail(StoreError::Unavailable, QStringLiteral("Qt's SQLite driver is not installed"));
        return nullptr;
    }
    m_error = StoreFiles::ensureExists(m_path);
    m_stamp = FileStamp::of(m_path);
    if (m_error.fault != StoreError::None) {
        return nullptr;
    }
    auto connection = openIn(StoreConnection::Mode::ReadWrite);
    // On a read-only file system SQLite cannot make the files that it shares with other processes. What was
    // stored there still holds.
    if (m_error.fault == StoreError::Unavailable && StoreFiles::isCompleteAndReadOnly(m_path)) {
        connection = openIn(StoreConnection::Mode::Immutable);
    }
    return connection;
}

std::unique_ptr<StoreConnection> StoreOpener::openIn(StoreConnection::Mode mode)
{
    auto connection = std::make_unique<StoreConnection>(m_path, mode);
    m_error = connection->lastError();
    if (m_error.fault == StoreError::None && prepare(*connection)) {
        return connection;
    }
    if (m_error.fault == StoreError::Corrupt) {
        m_damaged = std::move(connection);
    }
    return nullptr;
}

bool StoreOpener::prepare(StoreConnection& connection)
{
    int version = 0;
    if (!examine(connection, version) || !checkContent(connection) || !configure(connection)) {
        return false;
    }
    if (version != m_schema.version() && !migrate(connection)) {
        return false;
    }
    const FileStamp opened = FileStamp::of(m_path);
    if (!opened.isSameFile(m_stamp)) {
        return fail(StoreError::Busy, QStringLiteral("replaced while it was being opened"));
    }
    m_stamp = opened;
    return true;
}

bool StoreOpener::fail(StoreError::Fault fault, const QString& text)
{
    m_error = {fault, text};
    return false;
}

bool StoreOpener::failAs(const StoreConnection& connection)
{
    m_error = connection.lastError();
    return false;
}

bool StoreOpener::examine(StoreConnection& connection, int& version)
{
    // Opening succeeds on any file; SQLite looks inside with the first statement only.
    QVariant objects;
    QVariant applicationId;
    QVariant userVersion;
    if (!connection.executeOnce(QStringLiteral("SELECT count(*) FROM sqlite_master"), &objects) ||
        !connection.executeOnce(QStringLiteral("PRAGMA application_id"), &applicationId) ||
        !connection.executeOnce(QStringLiteral("PRAGMA user_version"), &userVersion)) {
        return failAs(connection);
    }
    version = userVersion.toInt();
    if (objects.toInt() == 0 && applicationId.toInt() == 0 && version == 0) {
        return true;
    }
    if (applicationId.toInt() != m_schema.applicationId || version < 1 || objects.toInt() == 0) {
        return fail(StoreError::Refused, QStringLiteral("it belongs to another program"));
    }
    if (version > m_schema.version()) {
        return fail(StoreError::Refused, QStringLiteral("it was written by a newer release "
                                                        "(schema version %1, known up to %2)")
                                             .arg(version)
                                             .arg(m_schema.version()));
    }
    return true;
}

bool StoreOpener::checkContent(StoreConnection& connection)
{
    if (m_stamp.size() > maxCheckedSize) {
        return true;
    }
    QVariant result;
    if (!connection.executeOnce(QStringLiteral("PRAGMA quick_check(1)"), &result)) {
        return failAs(connection);
    }
    const QString finding = result.toString();
    if (finding != QLatin1String("ok")) {
        return fail(isAboutReading(finding) ? StoreError::Unavailable : StoreError::Corrupt, finding);
    }
    return true;
}

bool StoreOpener::configure(StoreConnection& connection)
{
    QStringList pragmas = {QStringLiteral("PRAGMA cell_size_check=ON"),
                           QStringLiteral("PRAGMA trusted_schema=OFF"),
                           QStringLiteral("PRAGMA temp_store=MEMORY"),
                           QStringLiteral("PRAGMA cache_size=-%1").arg(m_schema.cacheKib),
                           m_schema.durable ? QStringLiteral("PRAGMA synchronous=FULL")
                                            : QStringLiteral("PRAGMA synchronous=OFF")};
    if (connection.mode() == StoreConnection::Mode::ReadWrite) {
        pragmas.append(QStringLiteral("PRAGMA journal_mode=WAL"));
        pragmas.append(QStringLiteral("PRAGMA journal_size_limit=%1").arg(maxIdleLogSize));
    }
    for (const QString& pragma : qAsConst(pragmas)) {
        if (!connection.executeOnce(pragma)) {
            return failAs(connection);
        }
    }
    return true;
}

bool StoreOpener::migrate(StoreConnection& connection)
{
    if (!connection.executeOnce(QStringLiteral("BEGIN IMMEDIATE"))) {
        return failAs(connection);
    }
    if (!applyMigrations(connection) || !connection.executeOnce(QStringLiteral("COMMIT"))) {
        failAs(connection);
        connection.executeOnce(QStringLiteral("ROLLBACK"));
        return false;
    }
    return true;
}

bool StoreOpener::applyMigrations(StoreConnection& connection)
{
    // Read again now that nobody else can change it: another process may have been faster.
    QVariant version;
    if (!connection.executeOnce(QStringLiteral("PRAGMA user_version"), &version)) {
        return false;
    }
    for (int step = version.toInt(); step < m_schema.version(); ++step) {
        for (const QString& statement : m_schema.migrations.at(step)) {
            if (!connection.executeOnce(statement)) {
                return false;
            }
        }
    }
    return connection.executeOnce(QStringLiteral("PRAGMA application_id=%1").arg(m_schema.applicationId)) &&
           connection.executeOnce(QStringLiteral("PRAGMA user_version=%1").arg(m_schema.version()));
}
