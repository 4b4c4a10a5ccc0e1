#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl quarantine list`, `restore` and `delete`.
void addQuarantineCommand(const Command& tool);
