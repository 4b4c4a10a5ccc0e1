#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl detections prune --older-than T`.
void addDetectionsPrune(CLI::App& detections, Action& chosen);
