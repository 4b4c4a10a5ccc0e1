#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl scan [--clean] PATH...`.
void addScanCommand(const Command& tool);
