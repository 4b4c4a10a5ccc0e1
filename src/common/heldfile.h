#pragma once

#include "common/checkedfile.h"
#include "common/uniquefd.h"

#include <QByteArray>

/// What stands at a path, held together with the directory that it stands in, so that what was looked at is
/// what is removed in the end.
///
/// A user who may rename directories can have the same path lead to another file at any moment, to one of
/// root's for example. The directory is therefore found once, and the name in it is touched only while it
/// still belongs to the same inode. Links in the directory's path are followed; of a link at the end, it is
/// the link itself that is removed, and what it leads to that is looked at.
class HeldFile
{
public:
    explicit HeldFile(const QByteArray& path);
    /// The same for an absolute path of any length: users make trees of any depth. In a path that is longer
    /// than a call takes no link to a directory is followed.
    static HeldFile atAnyDepth(const QByteArray& path);

    /// What the name leads to.
    const CheckedFile& object() const;

    /// Why `object` is Missing, as an errno; 0 when it is not.
    int error() const
    {
        return m_error;
    }

    /// Whether a link led to `object`, as the name or below the first component of the path, or that cannot
    /// be ruled out any more: the path is relative, or leads elsewhere by now. Then whoever made the link
    /// need not be allowed to read the object.
    bool isReachedByLink() const;

    /// Removes the name. False with errno set on failure: ESTALE when something else has the name by now.
    bool remove() const;

    /// Gives it another name in the same directory, never one that is taken. False with errno set on failure,
    /// as for `remove`.
    bool rename(const QByteArray& name) const;

private:
    struct Directory
    {
        UniqueFd descriptor;
        /// Why it could not be opened, as an errno.
        int error = 0;
    };

    static Directory openDirectory(const QByteArray& path);
    HeldFile(const QByteArray& path, Directory parent);
    bool isStillThere() const;

    QByteArray m_name;
    QByteArray m_directoryPath;
    UniqueFd m_directory;
    /// What has the name, which may be a link.
    CheckedFile m_entry;
    /// What the link leads to.
    CheckedFile m_target;
    int m_error = 0;
};
