#pragma once

#include <QByteArray>
#include <QSet>
#include <QString>

/// What the settings say is to be left out, as it was when it was read. A new one leaves nothing out.
///
/// The service itself knows of files only; directories are left out by whoever walks. Copyable; any thread.
class Exclusions
{
public:
    /// Reads the lists; the store must be readable.
    static Exclusions read();

    /// By the whole path.
    bool isDirectoryExcluded(const QByteArray& path) const
    {
        return m_directories.contains(path);
    }

    /// What the service would answer for a file of this path: that it is clean, whatever is in it.
    bool isFileExcluded(const QByteArray& path) const
    {
        return path.endsWith(".tvq") || m_files.contains(path);
    }

private:
    /// Whole paths. One that is longer than all of them is not even hashed: others make paths of any length,
    /// and each directory on the way down is asked for.
    class Paths
    {
    public:
        explicit Paths(const QSet<QString>& list = {});
        bool contains(const QByteArray& path) const
        {
            return path.size() <= m_longest && m_paths.contains(path);
        }

    private:
        QSet<QByteArray> m_paths;
        int m_longest = 0;
    };

    Paths m_directories;
    Paths m_files;
};
