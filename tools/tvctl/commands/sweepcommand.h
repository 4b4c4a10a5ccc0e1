#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl sweep [--full] [PATH...]`.
void addSweepCommand(const Command& tool);
