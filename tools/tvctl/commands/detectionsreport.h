#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl detections report [--since T] -o FILE.html`.
void addDetectionsReport(CLI::App& detections, Action& chosen);
