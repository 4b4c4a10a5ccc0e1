#pragma once

#include <QString>
#include <QVector>

#include <set>
#include <utility>
#include <vector>

/// Finds watches by the beginning of their directory's path, in a time that does not grow with the number of
/// all others: whoever makes and removes thousands of directories must not have each removal go through the
/// watches of everybody.
class PathIndex
{
public:
    /// A path may have several watches; one pair is added once.
    void add(const QString& path, int watch);
    void remove(const QString& path, int watch);

    /// Removes every path that starts with the text `prefix`, and returns the watches.
    QVector<int> takeStartingWith(const QString& prefix);

private:
    using Entry = std::pair<QString, int>;
    void sortIn();

    /// Not sorted in yet.
    std::vector<Entry> m_added;
    /// By UTF-16 code units, so that all that begin alike stand together.
    std::set<Entry> m_watches;
};
