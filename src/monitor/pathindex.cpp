#include "monitor/pathindex.h"

#include <algorithm>
#include <limits>

namespace
{
/// Long paths that begin alike take as long to compare as thousands of short ones.
constexpr std::size_t mostAdded = 1024;
constexpr int mostAddedCharacters = 256 * 1024;
} // namespace

void PathIndex::add(const QString& path, int watch)
{
    m_added.emplace_back(path, watch);
    m_addedCharacters += path.size();
    if (m_wasLookedInto && (m_added.size() >= mostAdded || m_addedCharacters >= mostAddedCharacters)) {
        sortIn();
    }
}

void PathIndex::remove(const QString& path, int watch)
{
    sortIn();
    m_watches.erase({path, watch});
}

QVector<int> PathIndex::takeStartingWith(const QString& prefix)
{
    sortIn();
    QVector<int> taken;
    auto entry = m_watches.lower_bound({prefix, std::numeric_limits<int>::min()});
    while (entry != m_watches.end() && entry->first.startsWith(prefix)) {
        taken.append(entry->second);
        entry = m_watches.erase(entry);
    }
    return taken;
}

void PathIndex::sortIn()
{
    // Neighbours one after the other: each is looked for where the one before it went.
    std::sort(m_added.begin(), m_added.end());
    auto place = m_watches.begin();
    for (Entry& entry : m_added) {
        place = std::next(m_watches.insert(place, std::move(entry)));
    }
    // Without the memory, which may be that of all watches.
    m_added = {};
    m_addedCharacters = 0;
    m_wasLookedInto = true;
}
