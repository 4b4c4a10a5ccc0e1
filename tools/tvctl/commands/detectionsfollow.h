#pragma once

#include "tvctl/commands/action.h"

namespace CLI
{
class App;
}

/// `tvctl detections follow [--format json|ecs] [--since T | --after-id ID | --cursor FILE]`.
void addDetectionsFollow(CLI::App& detections, Action& chosen);
