#include "monitor/watchedpaths.h"

#include <cerrno>

namespace
{
/// Each path of a deep tree is as long as all names above. What is longer than any program can name at once,
/// several times over, is left to a sweep, in UTF-16 code units; and so is what lies beyond 256 MB of paths.
constexpr int longestPath = 4 * 4096;
constexpr qint64 mostCharacters = qint64(128) << 20;
} // namespace

bool WatchedPaths::hasRoomFor(const QString& path) const
{
    if (path.size() > longestPath) {
        errno = ENAMETOOLONG;
        return false;
    }
    // As when the kernel's watches are used up.
    errno = ENOSPC;
    return m_characters + path.size() <= mostCharacters;
}

void WatchedPaths::add(int watch, const QString& path)
{
    remove(watch);
    m_paths.insert(watch, path);
    m_byPath.add(path, watch);
    m_characters += path.size();
}

QString WatchedPaths::pathOf(int watch) const
{
    return m_paths.value(watch);
}

void WatchedPaths::remove(int watch)
{
    const auto known = m_paths.find(watch);
    if (known == m_paths.end()) {
        return;
    }
    m_byPath.remove(*known, watch);
    m_characters -= known->size();
    m_paths.erase(known);
}

void WatchedPaths::removeStartingWith(const QString& prefix)
{
    for (const int watch : m_byPath.takeStartingWith(prefix)) {
        m_characters -= m_paths.take(watch).size();
    }
}

void WatchedPaths::prepareForRemovals()
{
    m_byPath.sortIn();
}
