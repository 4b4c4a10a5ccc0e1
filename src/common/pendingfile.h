#pragma once

#include "common/uniquefd.h"

#include <QByteArray>

#include <sys/types.h>

/// A file while it is made: under a passing name, which goes again unless the file was published.
///
/// Not a file without a name: where the directory is watched, the kernel tells of such a file by a made-up
/// name, and the monitor would look for it. Nothing is followed, nothing is replaced. Failures set errno.
class PendingFile
{
public:
    /// `directory` has to live as long. Nothing is made yet.
    PendingFile(const UniqueFd& directory, const QByteArray& name, const QByteArray& passingName);
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;
    ~PendingFile();

    /// Makes the file, empty and open for writing. EEXIST when something has the passing name.
    bool create(mode_t mode);

    int file() const
    {
        return m_file.get();
    }

    /// Gives the file its name. EEXIST when something has it.
    bool publish();

    /// Takes the name away again. Leaves errno alone.
    void withdraw();

private:
    void remove(const QByteArray& name);

    const UniqueFd& m_directory;
    const QByteArray m_name;
    const QByteArray m_passingName;
    UniqueFd m_file;
    bool m_hasPassingName = false;
};
