#pragma once

#include <QString>

/// The installation root of an executable that lies in the directory `applicationDirPath`: the
/// directory above it, or the fixed root when that is empty or lies exactly two levels below "/".
/// A pure function of its argument; reentrant.
QString installationRootOf(const QString& applicationDirPath);
