#pragma once

#include "common/uniquefd.h"
#include "tvctl/files/directorynames.h"

#include <QByteArray>
#include <QList>

#include <functional>
#include <vector>

#include <sys/stat.h>

/// Walks a tree of directories that others may change meanwhile, or have made to do harm.
///
/// Everything is reached by descriptors, name by name, without following links, so nobody leads the walk
/// astray, and paths may be of any length and depth: at most `openDirectories` descriptors are open. The
/// order is that of the names' bytes, a directory in front of what is in it, hidden ones like others. Other
/// file systems that are mounted below are walked too, but not those that the kernel makes up (proc, sysfs
/// ...). What vanishes during the walk is passed over. Memory: the names of the directories on the way down.
/// For one thread.
///
///     TreeWalker walker("/home");
///     while (walker.next()) { switch (walker.kind()) ... }
class TreeWalker
{
public:
    static constexpr size_t openDirectories = 66;

    enum class Kind
    {
        /// A regular file.
        File,
        /// A directory; what is in it comes next.
        Directory,
        /// A directory that `isSkipped` names: not looked at.
        Skipped,
        /// Nothing to read: a link, a FIFO, a device, a socket, a file system that the kernel makes up.
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
    bool enter(const char* name);
    bool report(Kind kind, int error = 0);
    bool passOver(int error);
    int reopened(size_t level);
    bool isRoot() const;
    int linkFlag() const;

    const QByteArray m_root;
    const SkipRule m_isSkipped;
    const bool m_isBelowSlash;
    std::vector<Level> m_levels;
    /// What leads to the place to resume behind, name by name.
    QList<QByteArray> m_resume;

    Kind m_kind = Kind::Other;
    QByteArray m_path;
    struct stat m_status = {};
    int m_error = 0;
};
