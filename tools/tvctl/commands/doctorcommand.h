#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl doctor`.
void addDoctorCommand(CLI::App& tool, Action& chosen);
