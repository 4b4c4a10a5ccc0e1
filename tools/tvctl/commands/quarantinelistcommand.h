#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl quarantine list`.
void addQuarantineList(const Command& quarantine);
