#pragma once

#include "common/uniquefd.h"

#include <QByteArray>
#include <QVector>

/// The engine's own directory for temporary files.
///
/// libclamav makes a directory for every scan and calls each file clean when it cannot. So the engine gets a
/// place that nobody else can fill, remove or put a link into: the service's own, mode 0700, on a file system
/// in memory when one has room (three times as fast as a disk for a small file).
///
/// Main thread. Not `Common::getTempDirPath()`, which everyone may write to.
class EngineDirectory
{
public:
    /// Where such a directory may lie.
    struct Place
    {
        QByteArray parent;
        /// What has to be free there, in bytes.
        quint64 leastRoom = 0;
    };

    /// The best first: $TMPDIR when set (the private place that a service manager gives), /run, /dev/shm, and
    /// in the end the installation root.
    static QVector<Place> places();

    /// None.
    EngineDirectory() = default;
    /// Makes the directory in the first of `places` that takes it, and removes what a killed run left there.
    explicit EngineDirectory(const QVector<Place>& places);

    /// Removes what is in it. A scan that is under way can go on to make files only until then: those are in
    /// a directory of its own.
    void clear() const;

    /// Empty when there is none.
    const QByteArray& path() const
    {
        return m_path;
    }

private:
    bool take(const Place& place, const QByteArray& name);

    QByteArray m_path;
    /// Locked as long as this process uses the directory.
    UniqueFd m_directory;
};
