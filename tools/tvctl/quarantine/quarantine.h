#pragma once

#include "common/checkedfile.h"
#include "common/uniquefd.h"
#include "tvctl/quarantine/quarantineentry.h"

#include <QByteArray>
#include <QVector>

#include <cstddef>
#include <optional>

/// What lies in the quarantine.
struct QuarantineListing
{
    /// The error number that ended the reading early; 0 when `entries` is complete.
    int error = 0;
    /// In the order of their names, so of their times.
    QVector<QuarantineEntry> entries;
    /// Copies that are being made now, or were when the service was killed.
    size_t unfinished = 0;
    /// Whatever else lies there.
    size_t foreign = 0;
};

/// The quarantine directory of an installation, held open: everything here goes by that one directory and
/// names in it, whatever happens to the path meanwhile.
///
/// Works beside a running service. Not for several threads at once.
class Quarantine
{
public:
    /// A link at `path` itself is followed: packages put one there.
    explicit Quarantine(const QByteArray& path);

    /// 0, or why the directory could not be opened; everything else fails with the same number then.
    int error() const
    {
        return m_error;
    }

    QuarantineListing list() const;

    /// The copy `name`; nothing with errno set when there is none, ENOENT also for what is no copy's name and
    /// EINVAL when something other than a regular file has it.
    std::optional<QuarantineEntry> entry(const QByteArray& name) const;

    /// Opens the copy `name` for reading; invalid with errno set as for `entry`.
    UniqueFd open(const QByteArray& name) const;

    /// Removes these copies, and nothing but copies: for each name 0 or the error number, ENOENT when there
    /// is none. On return what was removed stays so after a crash; when it is interrupted, each copy is
    /// either whole or gone.
    QVector<int> remove(const QVector<QByteArray>& names) const;

private:
    /// The regular file `name`, whose name is a copy's; errors as for `entry`.
    std::optional<CheckedFile> check(const QByteArray& name) const;

    UniqueFd m_directory;
    int m_error;
};
