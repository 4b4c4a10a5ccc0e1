#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl ioc add|remove|clear`: what changes the lists of hashes one by one.
void addIocChangeCommands(const Command& ioc);
