#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl ioc ...`: the lists of known-bad hashes.
void addIocCommand(const Command& tool);
