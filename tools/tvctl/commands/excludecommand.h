#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl exclude list|add|remove`.
void addExcludeCommand(CLI::App& tool, Action& chosen);
