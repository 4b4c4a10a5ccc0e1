#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl clean PATH...`.
void addCleanCommand(CLI::App& tool, Action& chosen);
