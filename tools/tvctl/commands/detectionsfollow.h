#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl detections follow [--format json|ecs] [--since T | --after-id ID | --cursor FILE]`.
void addDetectionsFollow(const Command& detections);
