#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl detections list|follow|export|prune|report`.
void addDetectionsCommand(CLI::App& tool, Action& chosen);
