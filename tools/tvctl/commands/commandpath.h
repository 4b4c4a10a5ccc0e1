#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <string>
#include <vector>

/// The absolute path that `argument`, from the command line and in bytes, names: against the working
/// directory, without ".", ".." and double slashes, links not resolved. Throws ToolError for an empty one,
/// and for a relative one when the working directory was removed.
QString pathOf(const std::string& argument);

/// The same for each.
QStringList pathsOf(const std::vector<std::string>& arguments);

/// The same in bytes.
QVector<QByteArray> bytePathsOf(const std::vector<std::string>& arguments);
