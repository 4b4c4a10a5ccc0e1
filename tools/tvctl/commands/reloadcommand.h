#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl reload db|settings|ioc-db|ioc-settings`.
void addReloadCommand(CLI::App& tool, Action& chosen);
