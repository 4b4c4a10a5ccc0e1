#pragma once

#include "tvctl/console/exitcode.h"

/// Takes the command line apart, runs the command, prints what stopped it. Needs a QCoreApplication.
ExitCode runCommandLine(int argc, char* argv[]);
