#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl detections export --format csv|json|ecs [--since T] [--until T] [-o FILE]`.
void addDetectionsExport(const Command& detections);
