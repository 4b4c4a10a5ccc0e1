#pragma once

class HeldFile;
class QString;

/// Copies the regular file that `source` leads to, to `destination`, a path whose
/// name ends in ".tvq".
///
/// On return with 0 the copy is whole and on disk, the directory entry included, readable by its owner
/// alone and never executable. Otherwise the result is the errno of the failure and nothing is left behind.
/// A file that has the name already is never replaced (EEXIST). Only what the source held when it was opened
/// is copied: a file that grows meanwhile cannot fill the disk. Holes stay holes, and what does not fit on
/// the disk is not begun (ENOSPC).
///
/// What the source was besides its content goes with the copy as OriginalState, where the file system has
/// room for that, and unless a link led to the source.
int copyIntoQuarantine(const HeldFile& source, const QString& destination);
