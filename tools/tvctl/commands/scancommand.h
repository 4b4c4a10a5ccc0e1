#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl scan [--clean] PATH...`.
void addScanCommand(CLI::App& tool, Action& chosen);
