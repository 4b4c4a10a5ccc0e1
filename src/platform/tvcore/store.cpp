#include "platform/tvcore/store.h"

#include "common/common.h"
#include "platform/tvcore/directorylock.h"
#include "platform/tvcore/storelog.h"
#include "platform/tvcore/storeopener.h"

#include <QDir>
#include <QFileInfo>
#include <QThread>

#include <utility>

namespace
{
/// The answer to an event may wait for two stores, in less than a quarter of a second.
constexpr qint64 briefWaitMs = 100;
constexpr qint64 longWaitMs = 2000;
/// Between two looks whether the lock has gone.
constexpr unsigned long pauseMs = 1;
/// Before each further transaction of one process that can wait, so that another that looks for its chance
/// every millisecond gets one; who writes in a loop would hold the lock nearly all the time. What is brief
/// does not give way: every scan of a file with known hashes writes, and would take this much longer.
constexpr qint64 gapMs = 3;
/// Having waited in vain, brief operations do not wait for this long, so that a lock that stays for good
/// costs the service a small part of its time and not most of it.
constexpr qint64 impatienceMs = 2000;
/// A file that could not be opened is tried again after this long, at once when it changed.
constexpr qint64 reopenPauseMs = 500;
/// A disk that damages every new file must not be filled with the remains.
constexpr int maxSetAsidePerRun = 10;
} // namespace

Store::Store(StoreSchema schema) : m_schema(std::move(schema))
{
}

Store::~Store() = default;

void Store::setDirectory(const QString& directory)
{
    close();
    for (int access = Read; access < AccessCount; ++access) {
        m_waited[access].invalidate();
        m_noted[access] = StoreError::None;
    }
    m_directory = directory.isEmpty() ? directory : QDir(directory).absolutePath();
}

bool Store::read(const Work& work)
{
    return run(Read, work, Patience::Brief);
}

bool Store::write(const Work& work, Patience patience)
{
    if (patience == Patience::Long && m_written.isValid() && !m_written.hasExpired(gapMs)) {
        QThread::msleep(static_cast<unsigned long>(gapMs));
    }
    return run(Write, work, patience);
}

void Store::close()
{
    m_connection.reset();
    m_openError = {};
    m_stamp = {};
}

bool Store::run(Access access, const Work& work, Patience patience)
{
    const bool waits = patience == Patience::Long || !m_waited[access].isValid() ||
                       m_waited[access].hasExpired(impatienceMs);
    const qint64 maxWaitMs = patience == Patience::Long ? longWaitMs : briefWaitMs;
    QElapsedTimer waiting;
    StoreError error = attempt(access, work);
    while (error.fault == StoreError::Busy && waits) {
        if (!waiting.isValid()) {
            waiting.start();
        }
        if (waiting.hasExpired(maxWaitMs)) {
            m_waited[access].start();
            // The lock may be this connection's own, not given back because of an error. One to a file that
            // was replaced is kept: its log has to be moved away before the new file is opened.
            if (m_connection != nullptr && !isOutdated()) {
                m_connection.reset();
            }
            break;
        }
        QThread::msleep(pauseMs);
        error = attempt(access, work);
    }
    if (error.fault == StoreError::None) {
        m_waited[access].invalidate();
    }
    note(access, error);
    return error.fault == StoreError::None;
}

StoreError Store::attempt(Access access, const Work& work)
{
    StoreError error;
    if (m_connection != nullptr && isOutdated()) {
        error = leaveOutdated();
    }
    if (error.fault == StoreError::None && m_connection == nullptr) {
        error = open();
    }
    if (error.fault != StoreError::None) {
        return error;
    }
    error = access == Write       ? inTransaction(work)
            : work(*m_connection) ? StoreError()
                                  : m_connection->lastError();
    if (error.fault == StoreError::Corrupt) {
        return replaceDamaged(error.text);
    }
    if (error.fault == StoreError::Unavailable) {
        // A connection that was opened while nothing could be written never writes again, for example.
        // Reading may well go on, so only a failure to read puts off the next opening.
        m_connection.reset();
        if (access == Read) {
            m_openError = error;
            m_stamp = FileStamp::of(m_path);
            m_opened.start();
        }
    }
    return error;
}

StoreError Store::inTransaction(const Work& work)
{
    // Taking the write lock at once is the only way to be sure that the rest does not fail for want of it.
    if (!m_connection->execute(QStringLiteral("BEGIN IMMEDIATE"))) {
        return m_connection->lastError();
    }
    if (work(*m_connection) && m_connection->execute(QStringLiteral("COMMIT"))) {
        m_written.start();
        return {};
    }
    StoreError error = m_connection->lastError();
    m_connection->execute(QStringLiteral("ROLLBACK"));
    return error;
}

bool Store::isOutdated() const
{
    const FileStamp present = FileStamp::of(m_path);
    if (m_connection->mode() == StoreConnection::Mode::Immutable) {
        return !present.isUnchanged(m_stamp) || StoreFiles::hasLog(m_path) ||
               m_opened.hasExpired(reopenPauseMs);
    }
    return present.error() == 0 ? !present.isSameFile(m_stamp) : present.isMissing();
}

StoreError Store::leaveOutdated()
{
    if (FileStamp::of(m_path).error() == 0) {
        const DirectoryLock lock(QFileInfo(m_path).path());
        if (lock.error().fault == StoreError::Busy) {
            return lock.error();
        }
        moveLeftovers();
    }
    close();
    return {};
}

StoreError Store::open()
{
    const QString directory = m_directory.isEmpty() ? Common::getSettingsPath() : m_directory;
    m_path = directory + QLatin1Char('/') + m_schema.fileName;
    const bool isWorthATry = m_openError.fault == StoreError::None || m_openError.fault == StoreError::Busy ||
                             m_opened.hasExpired(reopenPauseMs) ||
                             !FileStamp::of(m_path).isUnchanged(m_stamp);
    if (isWorthATry) {
        m_openError = openUnderLock(directory);
        m_opened.start();
    }
    return m_openError;
}

StoreError Store::openUnderLock(const QString& directory)
{
    const DirectoryLock lock(directory);
    if (lock.error().fault != StoreError::None) {
        m_stamp = FileStamp::of(m_path);
        return lock.error();
    }
    StoreError error;
    do {
        StoreOpener opener(m_schema, m_path);
        m_connection = opener.open();
        m_stamp = opener.stamp();
        m_companions = StoreFiles::Companions::of(m_path);
        error = opener.error();
        if (error.fault == StoreError::Corrupt) {
            error = moveAside(error.text);
        }
    } while (m_connection == nullptr && error.fault == StoreError::None);
    return error;
}

StoreError Store::replaceDamaged(const QString& damage)
{
    const DirectoryLock lock(QFileInfo(m_path).path());
    if (lock.error().fault != StoreError::None) {
        return lock.error();
    }
    StoreError error;
    if (FileStamp::of(m_path).isSameFile(m_stamp)) {
        error = moveAside(damage);
    } else {
        // Another process met the damage first.
        moveLeftovers();
    }
    // Only now: SQLite leaves the log of a file alone that does not lie at its path any more.
    close();
    // Nothing has been done yet, but now it can be.
    return error.fault == StoreError::None ? StoreError{StoreError::Busy, damage} : error;
}

StoreError Store::moveAside(const QString& damage)
{
    if (m_setAsideCount == maxSetAsidePerRun) {
        return {StoreError::Unavailable, damage};
    }
    QString newPath;
    StoreError error = StoreFiles::setAside(m_path, newPath);
    if (error.fault == StoreError::None) {
        ++m_setAsideCount;
        qCWarning(lcTvcore, "%s is damaged (%s); set aside as %s and started anew", qUtf8Printable(m_path),
                  qUtf8Printable(damage), qUtf8Printable(newPath));
    }
    return error;
}

void Store::moveLeftovers()
{
    // The connection is still open, so the numbers of its files cannot stand for others meanwhile.
    QString newPath;
    if (StoreFiles::moveLeftovers(m_path, m_companions, newPath)) {
        qCInfo(lcTvcore, "%s was replaced; the log of the old one is kept as %s-wal", qUtf8Printable(m_path),
               qUtf8Printable(newPath));
    }
}

void Store::note(Access access, const StoreError& error)
{
    if (error.fault == m_noted[access]) {
        return;
    }
    m_noted[access] = error.fault;
    const char* operation = access == Read ? "read" : "written";
    if (error.fault == StoreError::None) {
        qCInfo(lcTvcore, "%s can be %s again", qUtf8Printable(m_path), operation);
    } else {
        qCWarning(lcTvcore, "%s cannot be %s: %s", qUtf8Printable(m_path), operation,
                  qUtf8Printable(error.text));
    }
}
