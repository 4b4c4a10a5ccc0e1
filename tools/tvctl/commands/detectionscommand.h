#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl detections list|follow|export|prune|report`.
void addDetectionsCommand(const Command& tool);
