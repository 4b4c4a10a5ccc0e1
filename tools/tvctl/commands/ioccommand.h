#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl ioc ...`: the lists of known-bad hashes.
void addIocCommand(CLI::App& tool, Action& chosen);
