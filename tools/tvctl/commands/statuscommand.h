#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl status`.
void addStatusCommand(CLI::App& tool, Action& chosen);
