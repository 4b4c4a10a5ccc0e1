#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <sys/types.h>

class Quarantine;

/// How giving a file back ended.
enum class RestoreOutcome
{
    /// It is in its place, whole and on disk, and the copy is out of the quarantine unless it was to stay.
    Restored,
    /// The same, but the copy could not be removed.
    CopyNotRemoved,

    // From here on nothing was given back, the copy is where it was, and nothing is left at the target.

    /// There is no such copy, or what has its name is no regular file (EINVAL) or cannot be opened.
    NoCopy,
    /// The target is no absolute path of a file, or holds "..".
    BadTarget,
    /// The target's directory is missing (ENOENT), or is none or lies behind a link (ENOTDIR).
    NoDirectory,
    /// Something has the target's name.
    TargetExists,
    /// It could not be written.
    NotWritten,
    /// It was taken away or replaced the moment that it appeared: found to be infected again, or somebody
    /// works against it.
    Vanished
};

struct RestoreResult
{
    RestoreOutcome outcome = RestoreOutcome::Restored;
    /// The error number behind any other outcome; 0 when there is none.
    int error = 0;

    bool isRestored() const
    {
        return outcome == RestoreOutcome::Restored || outcome == RestoreOutcome::CopyNotRemoved;
    }

    // What the restored file is like.

    qint64 size = 0;
    mode_t mode = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    /// Whether it was known what the original was. Otherwise the file is its user's alone, who is root, and
    /// was changed just now.
    bool isOriginalKnown = false;
    /// Whether the target's directory belongs to whom the original belonged to. Otherwise the file is root's
    /// alone too: by a link that is gone, somebody may have had another's file detected in his directory.
    bool isInOwnersDirectory = false;
    /// Whether the file could be made what the original was: a file system may know no owners. Without its
    /// owner it does not get its permissions either, which would open it to others.
    bool hasOriginalOwner = false;
    bool hasOriginalMode = false;
    bool hasOriginalTime = false;
};

struct RestoreOptions
{
    /// Leaves the copy in the quarantine also when its file was given back.
    bool keepCopy = false;
};

/// Gives the copy `name` back as the file `target`, an absolute path.
///
/// Works as root in directories that belong to attackers: follows no link below the first component of the
/// path, which is root's; replaces nothing; makes no directory. The file gets its owner, permissions without
/// set-id and sticky bits (both only in a directory of the same owner), and time of change before it gets its
/// name; until then it is nobody else's. The
/// copy is removed last. While it is written it has a passing name beginning with ".tvctl-" and ending in
/// ".part", which the file monitor leaves alone; under its own it is detected at once, unless it is excluded.
/// Killed in the middle it leaves the passing name behind, which hinders no later attempt.
/// For a copy that was made just now it waits until the second is over that the copy is named after.
RestoreResult restoreFromQuarantine(const Quarantine& quarantine, const QByteArray& name,
                                    const QByteArray& target, const RestoreOptions& options = {});
