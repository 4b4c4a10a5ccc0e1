#pragma once

#include "monitor/pathindex.h"

#include <QHash>
#include <QString>

/// The map from watches to the paths of their directories.
class WatchedPaths
{
public:
    /// Whether `path` may be kept; otherwise errno is set. Users make trees of any depth and width, and the
    /// kernel counts the directories only.
    bool hasRoomFor(const QString& path) const;
    /// A watch has one path: the last one added.
    void add(int watch, const QString& path);

    /// Empty for a watch that is not known.
    QString pathOf(int watch) const;

    void remove(int watch);
    /// Removes every watch whose path starts with the text `prefix`.
    void removeStartingWith(const QString& prefix);

    /// Does in advance what the first removal after many were added would take its time for.
    void prepareForRemovals();

private:
    QHash<int, QString> m_paths;
    PathIndex m_byPath;
    /// How long all paths are together.
    qint64 m_characters = 0;
};
