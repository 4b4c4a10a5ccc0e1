#pragma once

#include "tvctl/commandtree/command.h"

/// `tvctl ioc list`.
void addIocListCommand(const Command& ioc);
