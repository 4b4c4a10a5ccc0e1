#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl detections export --format csv|json|ecs [--since T] [--until T] [-o FILE]`.
void addDetectionsExport(CLI::App& detections, Action& chosen);
