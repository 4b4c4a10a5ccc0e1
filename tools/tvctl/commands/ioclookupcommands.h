#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl ioc scan PATH...` by the service, `tvctl ioc test PATH...` without it.
void addIocLookupCommands(const Command& ioc);
