#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl quarantine list`, `restore` and `delete`.
void addQuarantineCommand(CLI::App& tool, Action& chosen);
