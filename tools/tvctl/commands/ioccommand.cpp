#include "tvctl/commands/ioccommand.h"

#include "tvctl/commands/iocchangecommands.h"
#include "tvctl/commands/iocimportcommand.h"
#include "tvctl/commands/ioclistcommand.h"
#include "tvctl/commands/ioclookupcommands.h"

#include <CLI/CLI.hpp>

void addIocCommand(CLI::App& tool, Action& chosen)
{
    CLI::App* ioc = tool.add_subcommand("ioc", "Lists of known-bad hashes, and files that are on them");
    ioc->require_subcommand(1);
    addIocImportCommand(*ioc, chosen);
    addIocListCommand(*ioc, chosen);
    addIocChangeCommands(*ioc, chosen);
    addIocLookupCommands(*ioc, chosen);
}
