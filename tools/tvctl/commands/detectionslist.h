#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl detections list [--since T] [--limit N] [--virus V] [--path P]`.
void addDetectionsList(CLI::App& detections, Action& chosen);
