#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl detections list [--since T] [--limit N] [--virus V] [--path P]`.
void addDetectionsList(const Command& detections);
