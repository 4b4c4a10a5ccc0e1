#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl detections prune --older-than T`.
void addDetectionsPrune(const Command& detections);
