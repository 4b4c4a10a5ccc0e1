#pragma once

#include "common/uniquefd.h"

#include <QByteArray>

#include <sys/stat.h>

/// What stands at a path, held and looked at without being opened for reading.
///
/// Opening what a user made can hang for good (a FIFO) or set off a device. So the object is first taken
/// hold of by a descriptor that opens nothing, its kind is read from that, and only then is the very same
/// object opened: swapping the path in between gains nothing.
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
        /// A socket or a link that is not followed, neither of which can be opened.
        Other
    };

    /// Nothing.
    CheckedFile() = default;

    /// Takes hold of what is at `path`, links followed. When there is nothing, `kind` is Missing and errno
    /// tells why.
    explicit CheckedFile(const QByteArray& path);

    /// The same for what has the `name` in the open `directory`. A link there is not followed but held
    /// itself.
    CheckedFile(const UniqueFd& directory, const QByteArray& name);

    Kind kind() const
    {
        return m_kind;
    }

    /// Size, mode and identity as they were at construction; all zero when Missing.
    const struct stat& status() const
    {
        return m_status;
    }

    /// Leads to the object for as long as this one lives, whatever becomes of its name. Only for this
    /// process.
    QByteArray path() const;

    /// Opens the object for reading, never waiting (a file under another process's lease is refused).
    /// Invalid with errno set when that fails or the object is one that is never opened.
    UniqueFd openForReading() const;

private:
    explicit CheckedFile(UniqueFd handle);

    UniqueFd m_handle;
    Kind m_kind = Kind::Missing;
    struct stat m_status = {};
};
