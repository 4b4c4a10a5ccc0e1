#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl quarantine delete NAME...` or `--older-than TIME`.
void addQuarantineDelete(const Command& quarantine);
