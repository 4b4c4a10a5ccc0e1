#pragma once

#include <QByteArray>

#include <ctime>
#include <optional>

#include <sys/stat.h>
#include <sys/types.h>

/// What a file was before its copy went into the quarantine: a plain value.
///
/// It is kept with the copy as the extended attribute "user.tvfilemon.original", an ASCII text of one line
/// without an end:
///
///     mode=0644 uid=1000 gid=1000 mtime=1709643600.000000123
///
/// - mode: permission, set-id and sticky bits, four octal digits
/// - uid, gid: decimal numbers
/// - mtime: time of the last change, in seconds since 1970 rounded down, and nine digits of nanoseconds on
/// top
///
/// A copy without it was made on a file system without extended attributes, by an earlier version, or of a
/// file that a link led to.
struct OriginalState
{
    mode_t mode = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    timespec modified = {};

    static OriginalState of(const struct stat& status);

    /// Pure.
    QByteArray toText() const;
    /// Nothing for any text that `toText` does not give. Pure.
    static std::optional<OriginalState> fromText(const QByteArray& text);

    /// Sets the attribute of the open file. False with errno set when the file cannot have it.
    bool attachTo(int file) const;
    /// Reads it back; nothing when there is none or it makes no sense.
    static std::optional<OriginalState> attachedTo(int file);
};
