#pragma once

#include "tvctl/commands/session.h"
#include "tvctl/console/exitcode.h"

#include <functional>

/// What the chosen command does. Commands declare themselves to CLI11 and, when they are named on the
/// command line, put this into the place that they were given; `main` runs it. Throws ToolError.
using Action = std::function<ExitCode(Session&)>;
