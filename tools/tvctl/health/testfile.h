#pragma once

#include "common/uniquefd.h"

#include <QByteArray>
#include <QString>

/// The test pattern as a file in a directory that somebody else may own. Goes when this object goes.
///
/// Root writes it where others may do what they like: everything goes by descriptors, nothing is followed,
/// nothing is overwritten.
class TestFile
{
public:
    /// Makes it in `directory`, an absolute path without links, under a name that nobody can guess, and
    /// writes it once. See `error`.
    explicit TestFile(const QString& directory);
    ~TestFile();
    TestFile(const TestFile&) = delete;
    TestFile& operator=(const TestFile&) = delete;

    /// Why there is no file; 0 when there is.
    int error() const
    {
        return m_error;
    }
    /// Without the directory.
    QString name() const;

    /// Writes it once more, which is another event for who watches.
    void rewrite();

    /// Somebody has removed it, or put something else in its place.
    bool isGone() const;

private:
    bool write();

    const QByteArray m_name;
    UniqueFd m_directory;
    UniqueFd m_file;
    int m_error = 0;
};
