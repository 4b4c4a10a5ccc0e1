#include "tvctl/files/treewalker.h"

#include "tvctl/files/filesystems.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/statfs.h>

namespace
{
/// The directories that stay open: the first, this many of the deepest, and the one that is being entered.
constexpr size_t openLevels = TreeWalker::openDirectories - 2;

QList<QByteArray> namesOf(const QByteArray& path)
{
    QList<QByteArray> names = path.split('/');
    names.removeAll(QByteArray());
    return names;
}

/// The directory that `path` lies in. Links on the way are followed: this part is named by whoever calls.
UniqueFd openParent(const QByteArray& path)
{
    constexpr int flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    QList<QByteArray> names = namesOf(path);
    UniqueFd directory(::open("/", flags));
    while (names.size() > 1 && directory.isValid()) {
        directory = UniqueFd(::openat(directory.get(), names.takeFirst().constData(), flags));
    }
    return directory;
}

UniqueFd openDirectory(int parent, const char* name, int linkFlag)
{
    return UniqueFd(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | linkFlag));
}

bool isDirectory(const UniqueFd& directory, dev_t device, ino_t inode)
{
    struct stat status = {};
    return directory.isValid() && ::fstat(directory.get(), &status) == 0 && status.st_dev == device &&
           status.st_ino == inode;
}
} // namespace

TreeWalker::TreeWalker(const QByteArray& root, SkipRule isSkipped)
    : m_root(root),
      m_isSkipped(std::move(isSkipped)),
      m_isBelowSlash(namesOf(root).size() <= 1)
{
    const QList<QByteArray> names = namesOf(root);
    Level above;
    above.directory = openParent(root);
    struct stat status = {};
    above.error = above.directory.isValid() && ::fstat(above.directory.get(), &status) == 0 ? 0 : errno;
    above.device = status.st_dev;
    above.names = DirectoryNames(names.isEmpty() ? QByteArray(".") : names.last());
    m_levels.push_back(std::move(above));
}

void TreeWalker::resumeBehind(const QByteArray& path)
{
    resume(path, true);
}

void TreeWalker::resumeAt(const QByteArray& path)
{
    resume(path, false);
}

void TreeWalker::resume(const QByteArray& path, bool isSeen)
{
    m_resume = namesOf(path.mid(m_root.size()));
    m_isResumeSeen = isSeen;
    m_levels.front().isResumed = true;
}

void TreeWalker::restartDirectory()
{
    m_resume.clear();
    m_levels.back().next = 0;
    m_levels.back().isResumed = false;
}

bool TreeWalker::next()
{
    while (!m_levels.empty()) {
        Level& level = m_levels.back();
        if (level.error != 0) {
            const int error = std::exchange(level.error, 0);
            if (isRoot()) {
                // Without the directory that it lies in there is no root either.
                level.next = level.names.size();
                m_path = m_root;
            } else {
                m_path.truncate(level.pathSize);
                m_path = m_path.isEmpty() ? QByteArray("/") : m_path;
            }
            m_depth = isRoot() ? 0 : m_levels.size() - 2;
            return report(Kind::Unreadable, error);
        }
        if (level.next == level.names.size()) {
            leave();
            continue;
        }
        if ((level.directory.isValid() || reopen()) && look()) {
            return true;
        }
    }
    return false;
}

bool TreeWalker::look()
{
    Level& level = m_levels.back();
    const size_t index = level.next++;
    const char* name = level.names.name(index);
    if (isRoot()) {
        m_path = m_root;
    } else {
        m_path.truncate(level.pathSize);
        m_path += '/';
        m_path += name;
    }
    const bool isResumed = std::exchange(level.isResumed, false);
    const bool isSeen = isResumed && m_resume.isEmpty() && m_isResumeSeen;
    const size_t depth = m_levels.size();
    m_depth = depth - 1;
    const bool isFound = lookAt(name, level.names.type(index));
    if (isResumed && m_levels.size() == depth) {
        // No directory any more that leads to the place.
        m_resume.clear();
        return isFound && !isSeen;
    }
    return isFound;
}

bool TreeWalker::lookAt(const char* name, unsigned char type)
{
    // A directory that somebody wrote elsewhere says what he likes of the names in it. What it calls a
    // directory is tried, which saves a call each time; of all else the object itself is asked.
    if (type == DT_DIR) {
        if (isLeftOut()) {
            return report(Kind::Skipped);
        }
        UniqueFd directory = openDirectory(m_levels.back().directory.get(), name, linkFlag());
        if (directory.isValid()) {
            return enter(std::move(directory));
        }
        const int error = errno;
        if (error != ENOTDIR && error != ELOOP) {
            return passOver(error);
        }
    }
    const int flags = AT_NO_AUTOMOUNT | (linkFlag() != 0 ? AT_SYMLINK_NOFOLLOW : 0);
    if (::fstatat(m_levels.back().directory.get(), name, &m_status, flags) != 0) {
        return passOver(errno);
    }
    if (!S_ISDIR(m_status.st_mode)) {
        return report(S_ISREG(m_status.st_mode) ? Kind::File : Kind::Other);
    }
    if (isLeftOut()) {
        return report(Kind::Skipped);
    }
    UniqueFd directory = openDirectory(m_levels.back().directory.get(), name, linkFlag());
    return directory.isValid() ? enter(std::move(directory)) : passOver(errno);
}

bool TreeWalker::isLeftOut() const
{
    return m_isSkipped && m_isSkipped(m_path);
}

bool TreeWalker::enter(UniqueFd directory)
{
    const Level& parent = m_levels.back();
    if (m_levels.size() > mostLevels) {
        return report(Kind::Unreadable, ENAMETOOLONG);
    }
    Level level;
    level.directory = std::move(directory);
    if (::fstat(level.directory.get(), &m_status) != 0) {
        return passOver(errno);
    }
    level.device = m_status.st_dev;
    level.inode = m_status.st_ino;
    level.fileSystem = parent.fileSystem;
    m_isRootMounted =
        isRoot() ? level.device != parent.device && !m_ownDevices.contains(level.device) : m_isRootMounted;
    if (isRoot() || level.device != parent.device) {
        struct statfs about = {};
        if (::fstatfs(level.directory.get(), &about) != 0) {
            return passOver(errno);
        }
        level.fileSystem = about.f_type;
        if (!isRoot() && FileSystems::isPseudo(level.fileSystem)) {
            return report(Kind::Other);
        }
    }
    // A directory may have been given many names, and those below it again: a few hundred of them make more
    // paths than anybody will ever have walked.
    if (!m_ownDevices.contains(level.device) && !m_entered.emplace(level.device, level.inode).second) {
        return report(Kind::Other);
    }
    level.pathSize = m_path == "/" ? 0 : m_path.size();
    level.error = level.names.read(level.directory.get());
    m_leadsToResume = !m_resume.isEmpty();
    if (m_leadsToResume) {
        const QByteArray wanted = m_resume.takeFirst();
        level.next = level.names.lowerBound(wanted);
        level.isResumed = level.next < level.names.size() && wanted == level.names.name(level.next);
        if (!level.isResumed) {
            m_resume.clear();
        }
    }
    m_levels.push_back(std::move(level));
    if (m_levels.size() > openLevels + 1) {
        m_levels[m_levels.size() - 1 - openLevels].directory.reset();
    }
    return report(Kind::Directory);
}

bool TreeWalker::report(Kind kind, int error)
{
    m_kind = kind;
    m_error = error;
    return true;
}

bool TreeWalker::passOver(int error)
{
    // What is no longer there, or no longer what it was, is not worth a word, unless it was asked for.
    const bool isGone = error == ENOENT || error == ENOTDIR || error == ELOOP;
    return (isRoot() || !isGone) && report(Kind::Unreadable, error);
}

void TreeWalker::leave()
{
    const Level left = std::move(m_levels.back());
    m_levels.pop_back();
    if (m_levels.size() <= 1 || m_levels.back().directory.isValid() || !left.directory.isValid()) {
        return;
    }
    // Up, and not down again from the root: that would take as many steps as the tree is deep, each time.
    Level& parent = m_levels.back();
    parent.directory = openDirectory(left.directory.get(), "..", O_NOFOLLOW);
    if (!isDirectory(parent.directory, parent.device, parent.inode)) {
        // Somebody has moved what was left.
        parent.directory.reset();
    }
}

/// Opens the last directory again, by the names that lead there. When it is not there any more, false: the
/// first that is missing on the way is the last level then, and fails with ESTALE.
bool TreeWalker::reopen()
{
    const size_t last = m_levels.size() - 1;
    size_t open = last;
    while (open > 0 && !m_levels[open].directory.isValid()) {
        --open;
    }
    for (; open < last; ++open) {
        Level& parent = m_levels[open];
        Level& child = m_levels[open + 1];
        const char* name = parent.names.name(parent.next - 1);
        // Of the root a link may be followed, as it was at first.
        child.directory =
            openDirectory(parent.directory.get(), name, open == 0 && m_isBelowSlash ? 0 : O_NOFOLLOW);
        if (open > 0 && open + openLevels <= last) {
            parent.directory.reset();
        }
        if (!isDirectory(child.directory, child.device, child.inode)) {
            // Moved away, or another is in its place: nothing below leads on.
            child.directory.reset();
            child.error = ESTALE;
            child.next = child.names.size();
            m_levels.erase(m_levels.begin() + static_cast<std::ptrdiff_t>(open) + 2, m_levels.end());
            return false;
        }
    }
    return true;
}

bool TreeWalker::isRoot() const
{
    return m_levels.size() == 1;
}

int TreeWalker::linkFlag() const
{
    return isRoot() && m_isBelowSlash ? 0 : O_NOFOLLOW;
}

UniqueFd TreeWalker::openFile() const
{
    const Level& level = m_levels.back();
    // Held first, without being opened: by now it could be a FIFO, which nobody may open.
    const UniqueFd held(
        ::openat(level.directory.get(), level.names.name(level.next - 1), O_PATH | O_CLOEXEC | linkFlag()));
    struct stat status = {};
    if (!held.isValid() || ::fstat(held.get(), &status) != 0) {
        return UniqueFd();
    }
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return UniqueFd();
    }
    const QByteArray self = "/proc/self/fd/" + QByteArray::number(held.get());
    return UniqueFd(::open(self.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}
