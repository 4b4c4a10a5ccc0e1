#include "tvctl/health/watchneed.h"

#include "common/filename.h"
#include "common/owndevices.h"
#include "common/subdirectories.h"
#include "common/uniquefd.h"

#include <QPair>
#include <QSet>

#include <fcntl.h>
#include <sys/stat.h>

using std::chrono::steady_clock;

namespace
{
constexpr int deepestLevel = 5;
constexpr int maxExamples = 3;
constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

class Walk
{
public:
    Walk(const WatchedSet& watched, std::chrono::milliseconds limit)
        : m_watched(watched),
          m_deadline(steady_clock::now() + limit)
    {
    }

    void visit(const UniqueFd& directory, const QByteArray& path, int level)
    {
        struct stat status = {};
        if (!directory.isValid() || ::fstat(directory.get(), &status) != 0 || !count(status, path) ||
            level == deepestLevel) {
            return;
        }
        for (const QByteArray& name :
             subdirectoriesOf(directory.get(), m_ownDevices.contains(status.st_dev))) {
            if (steady_clock::now() > m_deadline) {
                m_need.isComplete = false;
                return;
            }
            visit(UniqueFd(::openat(directory.get(), name.constData(), directoryFlags)), path + '/' + name,
                  level + 1);
        }
    }

    const WatchNeed& need() const
    {
        return m_need;
    }

private:
    /// False when it was here before.
    bool count(const struct stat& status, const QByteArray& path)
    {
        const QPair<quint64, quint64> identity(status.st_dev, status.st_ino);
        if (m_seen.contains(identity)) {
            return false;
        }
        m_seen.insert(identity);
        ++m_need.directories;
        if (!m_watched.contains(status.st_dev, status.st_ino)) {
            ++m_need.unwatched;
            if (m_need.examples.size() < maxExamples) {
                m_need.examples += FileName::toText(path);
            }
        }
        return true;
    }

    const WatchedSet& m_watched;
    const steady_clock::time_point m_deadline;
    const OwnDevices m_ownDevices;
    QSet<QPair<quint64, quint64>> m_seen;
    WatchNeed m_need;
};
} // namespace

QStringList WatchNeed::watchedRoots()
{
    return {QStringLiteral("/home"), QStringLiteral("/media")};
}

WatchNeed walkWatchedTrees(const QStringList& roots, const WatchedSet& watched,
                           std::chrono::milliseconds limit)
{
    Walk walk(watched, limit);
    for (const QString& root : roots) {
        const QByteArray path = FileName::toBytes(root);
        // A root may be a link, which is root's.
        walk.visit(UniqueFd(::open(path.constData(), directoryFlags & ~O_NOFOLLOW)), path, 1);
    }
    return walk.need();
}
