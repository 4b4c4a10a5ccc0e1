#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl quarantine restore NAME`.
void addQuarantineRestore(const Command& quarantine);
