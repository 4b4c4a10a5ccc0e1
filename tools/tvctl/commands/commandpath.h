#pragma once

#include <QString>
#include <QStringList>

#include <string>
#include <vector>

/// The absolute path that `argument`, from the command line and in bytes, names: against the working
/// directory, without ".", ".." and double slashes, links not resolved. An empty one stays empty.
QString pathOf(const std::string& argument);

/// The same for each.
QStringList pathsOf(const std::vector<std::string>& arguments);
