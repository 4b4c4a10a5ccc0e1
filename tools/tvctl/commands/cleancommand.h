#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl clean PATH...`.
void addCleanCommand(const Command& tool);
