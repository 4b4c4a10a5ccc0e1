#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl url TEXT...`.
void addUrlCommand(const Command& tool);
