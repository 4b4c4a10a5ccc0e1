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
    bool isFileExcluded(const QString& path) const;

private:
    QSet<QByteArray> m_directories;
    QSet<QString> m_files;
};
