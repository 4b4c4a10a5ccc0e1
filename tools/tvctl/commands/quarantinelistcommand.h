#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl quarantine list`.
void addQuarantineList(CLI::App& quarantine, Action& chosen);
