#pragma once

#include "tvctl/commandtree/action.h"
#include "tvctl/console/exitcode.h"

#include <string>

namespace CLI
{
class App;
}

/// What may stand before or behind any command.
struct GlobalOptions
{
    std::string root;
    bool isJson = false;
    bool isPlain = false;
};

/// Tells `tool` all options and commands. Parsing fills `options` and `chosen`, which outlive it.
void declareCommandLine(CLI::App& tool, GlobalOptions& options, Action& chosen);

/// Takes the command line apart, runs the command, prints what stopped it. Needs a QCoreApplication.
ExitCode runCommandLine(int argc, char* argv[]);
