#pragma once

#include "common/uniquefd.h"

#include <QByteArray>

#include <sys/stat.h>

/// What stands at a path, held and looked at without being opened for reading.
///
/// Opening what a user made can hang for good (a FIFO) or set off a device. So the object is first taken
/// hold of by a descriptor that opens nothing, its kind is read from that, and only then is the very same
/// object opened: swapping the path in between gains nothing. Links are followed.
class CheckedFile
{
public:
    enum class Kind
    {
        /// Nothing there, or not to be reached.
        Missing,
        Regular,
        Directory,
        /// A FIFO or a device: never to be opened.
        Special,
        /// A socket, which cannot be opened.
        Other
    };

    /// Takes hold of what is at `path`. When there is nothing, `kind` is Missing and errno tells why.
    explicit CheckedFile(const QByteArray& path);

    Kind kind() const
    {
        return m_kind;
    }

    /// Size, mode and identity as they were at construction; all zero when Missing.
    const struct stat& status() const
    {
        return m_status;
    }

    /// Opens the object for reading, never waiting (a file under another process's lease is refused).
    /// Invalid with errno set when that fails or the object is one that is never opened.
    UniqueFd openForReading() const;

private:
    UniqueFd m_handle;
    Kind m_kind = Kind::Missing;
    struct stat m_status = {};
};
