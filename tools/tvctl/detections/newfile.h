#pragma once

#include "common/uniquefd.h"

#include <QByteArray>
#include <QString>

/// A file that appears under its name only when it is complete, in the place of one that was there before.
///
/// Only its owner may read it. Never written through a link: a link, like anything else than a regular file,
/// in that place is refused. In a directory that others may write to, `publish` makes sure that what has the
/// name in the end is what was written. All functions throw ToolError.
class NewFile
{
public:
    /// Makes it beside the place where it will lie, under a passing name.
    explicit NewFile(const QString& path);
    /// Takes it away again unless it was published.
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void write(const QByteArray& bytes);
    /// Puts it onto the disk and gives it its name.
    void publish();

private:
    void requireRegularOrNothing() const;
    [[noreturn]] void fail(int error) const;

    const QString m_path;
    QByteArray m_name;
    QByteArray m_passingName;
    UniqueFd m_directory;
    UniqueFd m_file;
    bool m_isPassing = false;
};
