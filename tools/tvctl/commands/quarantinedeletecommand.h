#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl quarantine delete NAME...` or `--older-than TIME`.
void addQuarantineDelete(CLI::App& quarantine, Action& chosen);
