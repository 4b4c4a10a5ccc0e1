#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl reload db|settings|ioc-db|ioc-settings`.
void addReloadCommand(const Command& tool);
