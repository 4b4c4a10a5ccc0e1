#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl status`.
void addStatusCommand(const Command& tool);
