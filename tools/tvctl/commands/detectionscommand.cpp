#include "tvctl/commands/detectionscommand.h"

#include "tvctl/commands/detectionsexport.h"
#include "tvctl/commands/detectionsfollow.h"
#include "tvctl/commands/detectionslist.h"
#include "tvctl/commands/detectionsprune.h"
#include "tvctl/commands/detectionsreport.h"

void addDetectionsCommand(const Command& tool)
{
    const Command command = tool.addGroup("detections", "Show, stream, export or remove what was detected");
    addDetectionsList(command);
    addDetectionsFollow(command);
    addDetectionsExport(command);
    addDetectionsPrune(command);
    addDetectionsReport(command);
}
