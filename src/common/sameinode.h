#pragma once

#include "common/uniquefd.h"

#include <QByteArray>

#include <sys/stat.h>

/// Whether both are of one file.
bool isSameInode(const struct stat& one, const struct stat& other);

/// Whether the open `file` is what has the `name` in the open `directory`; a link there is not followed.
/// Whoever may write to the directory can put something else under any name. False with errno set when not:
/// ESTALE when something else has it.
bool isNamed(int file, const UniqueFd& directory, const QByteArray& name);
