#include "monitor/pathindex.h"

#include <limits>

void PathIndex::add(const QString& path, int watch)
{
    m_watches.emplace(path, watch);
}

void PathIndex::remove(const QString& path, int watch)
{
    m_watches.erase({path, watch});
}

QVector<int> PathIndex::takeStartingWith(const QString& prefix)
{
    QVector<int> taken;
    auto entry = m_watches.lower_bound({prefix, std::numeric_limits<int>::min()});
    while (entry != m_watches.end() && entry->first.startsWith(prefix)) {
        taken.append(entry->second);
        entry = m_watches.erase(entry);
    }
    return taken;
}
