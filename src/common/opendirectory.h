#pragma once

#include "common/uniquefd.h"

#include <QByteArray>

/// Takes hold of the directory `path`, an absolute path, by a descriptor that opens nothing for reading.
///
/// Links are followed in the first component only, which is root's: below it a user could put a link in the
/// place of a directory that was just made, and have another one taken for it. Invalid with errno set when
/// there is no such directory, ENOTDIR when a link stands in the way, EINVAL for a path that is not absolute.
/// Any length will do, and any number of slashes in one place.
UniqueFd openDirectoryWithoutLinks(const QByteArray& path);
