#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl config list|get|set`.
void addConfigCommand(const Command& tool);
