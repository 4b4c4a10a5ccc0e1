#include "tvctl/commands/quarantinecommand.h"

#include "tvctl/commands/quarantinedeletecommand.h"
#include "tvctl/commands/quarantinelistcommand.h"
#include "tvctl/commands/quarantinerestorecommand.h"

#include <CLI/CLI.hpp>

void addQuarantineCommand(CLI::App& tool, Action& chosen)
{
    CLI::App* command =
        tool.add_subcommand("quarantine", "Show, give back or delete copies of infected files");
    command->require_subcommand(1);
    addQuarantineList(*command, chosen);
    addQuarantineRestore(*command, chosen);
    addQuarantineDelete(*command, chosen);
}
