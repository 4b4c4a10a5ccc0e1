#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl ioc list`.
void addIocListCommand(CLI::App& ioc, Action& chosen);
