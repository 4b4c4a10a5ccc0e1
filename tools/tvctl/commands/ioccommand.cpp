#include "tvctl/commands/ioccommand.h"

#include "tvctl/commands/iocchangecommands.h"
#include "tvctl/commands/iocimportcommand.h"
#include "tvctl/commands/ioclistcommand.h"
#include "tvctl/commands/ioclookupcommands.h"

void addIocCommand(const Command& tool)
{
    const Command ioc = tool.addGroup("ioc", "Lists of known-bad hashes, and files that are on them");
    addIocImportCommand(ioc);
    addIocListCommand(ioc);
    addIocChangeCommands(ioc);
    addIocLookupCommands(ioc);
}
