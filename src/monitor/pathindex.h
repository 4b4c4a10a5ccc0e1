#pragma once

#include <QString>
#include <QVector>

#include <set>
#include <utility>
#include <vector>

/// Finds watches by the beginning of their directory's path, in a time that does not grow with the number of
/// all others: whoever makes and removes thousands of directories must not have each removal go through the
/// watches of everybody. Only those that were added since the last look have to be sorted in first.
class PathIndex
{
public:
    /// A path may have several watches; one pair is added once.
    void add(const QString& path, int watch);
    void remove(const QString& path, int watch);

    /// Removes every path that starts with the text `prefix`, and returns the watches.
    QVector<int> takeStartingWith(const QString& prefix);

    /// Sorts in what was added, which the next look would have to do.
    void sortIn();

private:
    using Entry = std::pair<QString, int>;

    /// Not sorted in yet: whatever there is until the first look, then little enough to keep nobody waiting.
    std::vector<Entry> m_added;
    qint64 m_addedCharacters = 0;
    bool m_wasLookedInto = false;
    /// By UTF-16 code units, so that all that begin alike stand together.
    std::set<Entry> m_watches;
};
