#include "tvctl/commands/quarantinecommand.h"

#include "tvctl/commands/quarantinedeletecommand.h"
#include "tvctl/commands/quarantinelistcommand.h"
#include "tvctl/commands/quarantinerestorecommand.h"

void addQuarantineCommand(const Command& tool)
{
    const Command command = tool.addGroup("quarantine", "Show, give back or delete copies of infected files");
    addQuarantineList(command);
    addQuarantineRestore(command);
    addQuarantineDelete(command);
}
