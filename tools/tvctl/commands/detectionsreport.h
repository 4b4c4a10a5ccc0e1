#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl detections report [--since T] -o FILE.html`.
void addDetectionsReport(const Command& detections);
