#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl exclude list|add|remove`.
void addExcludeCommand(const Command& tool);
