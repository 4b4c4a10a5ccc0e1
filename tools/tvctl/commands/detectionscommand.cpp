#include "tvctl/commands/detectionscommand.h"

#include "tvctl/commands/detectionsexport.h"
#include "tvctl/commands/detectionsfollow.h"
#include "tvctl/commands/detectionslist.h"
#include "tvctl/commands/detectionsprune.h"
#include "tvctl/commands/detectionsreport.h"

#include <CLI/CLI.hpp>

void addDetectionsCommand(CLI::App& tool, Action& chosen)
{
    CLI::App* command = tool.add_subcommand("detections", "Show, stream, export or remove what was detected");
    command->require_subcommand(1);
    addDetectionsList(*command, chosen);
    addDetectionsFollow(*command, chosen);
    addDetectionsExport(*command, chosen);
    addDetectionsPrune(*command, chosen);
    addDetectionsReport(*command, chosen);
}
