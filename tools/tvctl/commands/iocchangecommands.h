#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl ioc add|remove|clear`: what changes the lists of hashes one by one.
void addIocChangeCommands(CLI::App& ioc, Action& chosen);
