#pragma once

#include <sys/types.h>

/// Copies the first `limit` bytes of the file `from` into the empty file `to`, fewer when `from` ends before.
///
/// Holes stay holes: a file of any size costs its owner nothing while it is nothing but a hole, and must not
/// cost the disk here, nor the time to read it. What does not fit on the disk is not begun (ENOSPC), and
/// what is over 16 MiB and has no time any more is not finished (ECANCELED, see AbandonableWork). Nothing is
/// synced. False with errno set on failure; what `to` holds then is of no use.
bool copyFileContent(int from, int to, off_t limit);
