#pragma once

#include "common/owndevices.h"
#include "common/uniquefd.h"
#include "tvctl/files/directorynames.h"

#include <QByteArray>
#include <QList>

#include <functional>
#include <set>
#include <utility>
#include <vector>

#include <sys/stat.h>

/// Walks a tree of directories that others may change meanwhile, or have made to do harm.
///
/// Everything is reached by descriptors, name by name, without following links, so nobody leads the walk
/// astray, and paths may be of any length, and as deep as `mostLevels`: at most `openDirectories` descriptors
/// are open, and what an object costs does not depend on its depth. The
/// order is that of the names' bytes, a directory in front of what is in it, hidden ones like others. Other
/// file systems that are mounted below are walked too, but not those that the kernel makes up (proc, sysfs
/// ...). A directory that has several names, as one may have been given on a medium, is entered by the first;
/// what holds / or /home is trusted not to have any. What vanishes during the walk is passed over. Memory:
/// the names of the directories on the way down, and some bytes for each directory elsewhere. For one thread.
///
///     TreeWalker walker("/home");
///     while (walker.next()) { switch (walker.kind()) ... }
class TreeWalker
{
public:
    static constexpr size_t openDirectories = 66;
    /// Nobody has that many by accident; each takes memory until the walk is back above it. What lies deeper
    /// is Unreadable, with ENAMETOOLONG.
    static constexpr size_t mostLevels = 500000;

    enum class Kind
    {
        /// A regular file.
        File,
        /// A directory; what is in it comes next.
        Directory,
        /// A directory that `isSkipped` names: not looked at.
        Skipped,
        /// Nothing to read: a link, a FIFO, a device, a socket, a file system that the kernel makes up, a
        /// directory that was entered by another name.
        Other,
        /// A directory, or the rest of one, or an entry of it that cannot be read; see `error`.
        Unreadable
    };

    /// Tells by its path whether a directory is to be left out, before it is touched.
    using SkipRule = std::function<bool(const QByteArray&)>;

    /// `root` is an absolute path without "." and "..", of anything. It is opened as named, a pseudo file
    /// system too. A link is followed only directly below "/", where it is the administrator's.
    explicit TreeWalker(const QByteArray& root, SkipRule isSkipped = {});

    /// Leaves out whatever comes up to `path`, which lies below the root or is the root and need not exist
    /// any more, and `path` itself; what is below it comes. Only the directories that lead there come again.
    /// To be called before the first `next`.
    void resumeBehind(const QByteArray& path);
    /// The same, but `path` itself comes, if it is still there.
    void resumeAt(const QByteArray& path);
    /// The Directory comes because it leads to the place where the walk was resumed.
    bool leadsToResume() const
    {
        return m_leadsToResume;
    }

    /// Right behind a Directory: all of it comes, wherever the walk was resumed.
    void restartDirectory();

    /// Goes on to the next object. False when there is none: the functions below then tell nothing.
    bool next();

    Kind kind() const
    {
        return m_kind;
    }
    const QByteArray& path() const
    {
        return m_path;
    }
    /// The last name in `path`.
    QByteArray name() const
    {
        return m_path.mid(m_path.lastIndexOf('/') + 1);
    }
    /// How many names lead from the root to it: 0 is the root itself.
    size_t depth() const
    {
        return m_depth;
    }
    /// Of a File and a Directory. Of Other only its type is sure to be there.
    const struct stat& status() const
    {
        return m_status;
    }
    /// Why it is Unreadable. ENOENT only when the root itself is not there.
    int error() const
    {
        return m_error;
    }
    /// The kind of the file system that File or Directory lies on, as statfs tells it; 0 for a root that is a
    /// file.
    long fileSystem() const
    {
        return m_levels.back().fileSystem;
    }

    /// The File or Directory lies on a file system that is mounted somewhere below the root, or at the root
    /// itself and is not that of / or /home.
    bool isMounted() const
    {
        return m_levels.size() > 1 && (m_isRootMounted || m_status.st_dev != m_levels[1].device);
    }

    /// The directory that the File lies in, or the Directory itself, held open until the next `next`.
    int directory() const
    {
        return m_levels.back().directory.get();
    }

    /// Opens the File for reading, never waiting. Invalid with errno set when that fails, or when there is
    /// no regular file any more.
    UniqueFd openFile() const;

private:
    /// A directory on the way down. The first is the one that the root lies in.
    struct Level
    {
        DirectoryNames names;
        size_t next = 0;
        UniqueFd directory;
        dev_t device = 0;
        ino_t inode = 0;
        long fileSystem = 0;
        /// How much of `m_path` is this directory's.
        int pathSize = 0;
        /// What the reading of the names failed with, and nobody has been told yet.
        int error = 0;
        /// The next name is the one that was resumed at.
        bool isResumed = false;
    };

    bool look();
    bool lookAt(const char* name, unsigned char type);
    bool isLeftOut() const;
    bool enter(UniqueFd directory);
    bool report(Kind kind, int error = 0);
    bool passOver(int error);
    void leave();
    bool reopen();
    void resume(const QByteArray& path, bool isSeen);
    bool isRoot() const;
    int linkFlag() const;

    const QByteArray m_root;
    const SkipRule m_isSkipped;
    const bool m_isBelowSlash;
    const OwnDevices m_ownDevices;
    std::vector<Level> m_levels;
    bool m_isRootMounted = false;
    /// The directories on other devices that the walk has come to.
    std::set<std::pair<dev_t, ino_t>> m_entered;
    /// What leads to the place to resume behind, name by name.
    QList<QByteArray> m_resume;
    /// What is at that place has been seen before.
    bool m_isResumeSeen = false;
    bool m_leadsToResume = false;

    Kind m_kind = Kind::Other;
    size_t m_depth = 0;
    QByteArray m_path;
    struct stat m_status = {};
    int m_error = 0;
};
