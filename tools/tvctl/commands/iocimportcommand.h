#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl ioc import`.
void addIocImportCommand(CLI::App& ioc, Action& chosen);
