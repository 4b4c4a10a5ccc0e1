#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl config list|get|set`.
void addConfigCommand(CLI::App& tool, Action& chosen);
