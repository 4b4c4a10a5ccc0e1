#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl selftest [--directory DIR] [--timeout SECONDS]`.
void addSelftestCommand(const Command& tool);
