#pragma once

#include <QByteArray>

/// `path` for people, cut out in the middle when it is longer than anybody reads: a path has any length, and
/// is shown again and again. Not within a character that is UTF-8. Pure.
QByteArray shortPath(const QByteArray& path);

/// `path` for a record, a document or a line: whole as long as any call takes it, and short beyond. Thousands
/// of directories with long names make paths of megabytes, which would fill the disk with records and have a
/// journal cut a line in two, where its rest passes for another. Pure.
QByteArray recordedPath(const QByteArray& path);
