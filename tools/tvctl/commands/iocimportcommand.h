#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl ioc import`.
void addIocImportCommand(const Command& ioc);
