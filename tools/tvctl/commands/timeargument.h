#pragma once

#include <QDateTime>

#include <string>

/// The point in time that `argument` names, given as the value of `option`; see TimeText::parse. Invalid for
/// an empty one. Throws ToolError.
QDateTime timeOf(const std::string& argument, const char* option);
