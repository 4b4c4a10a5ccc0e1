#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl ioc scan PATH...` by the service, `tvctl ioc test PATH...` without it.
void addIocLookupCommands(CLI::App& ioc, Action& chosen);
