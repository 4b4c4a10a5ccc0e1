#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl quarantine restore NAME`.
void addQuarantineRestore(CLI::App& quarantine, Action& chosen);
