#pragma once

#include "tvctl/console/exitcode.h"

#include <functional>

class Session;

/// What the chosen command does. Throws ToolError.
using Action = std::function<ExitCode(Session&)>;
