#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl selftest [--directory DIR] [--timeout SECONDS]`.
void addSelftestCommand(CLI::App& tool, Action& chosen);
