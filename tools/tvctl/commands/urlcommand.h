#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl url TEXT...`.
void addUrlCommand(CLI::App& tool, Action& chosen);
