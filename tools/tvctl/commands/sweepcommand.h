#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl sweep [--full] [PATH...]`.
void addSweepCommand(CLI::App& tool, Action& chosen);
