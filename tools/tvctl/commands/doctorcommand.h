#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl doctor`.
void addDoctorCommand(const Command& tool);
