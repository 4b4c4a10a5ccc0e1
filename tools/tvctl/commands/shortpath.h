#pragma once

#include <QByteArray>

/// `path` for people, cut out in the middle when it is longer than anybody reads: a path has any length, and
/// is shown again and again. Not within a character that is UTF-8. Pure.
QByteArray shortPath(const QByteArray& path);
