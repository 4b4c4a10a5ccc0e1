#include "tvctl/commandline.h"

#include "common/common.h"
#include "common/filename.h"
#include "tvctl/commands/cleancommand.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/configcommand.h"
#include "tvctl/commands/detectionscommand.h"
#include "tvctl/commands/doctorcommand.h"
#include "tvctl/commands/excludecommand.h"
#include "tvctl/commands/ioccommand.h"
#include "tvctl/commands/quarantinecommand.h"
#include "tvctl/commands/reloadcommand.h"
#include "tvctl/commands/scancommand.h"
#include "tvctl/commands/selftestcommand.h"
#include "tvctl/commands/session.h"
#include "tvctl/commands/statuscommand.h"
#include "tvctl/commands/sweepcommand.h"
#include "tvctl/commands/urlcommand.h"
#include "tvctl/console/output.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/installation/installation.h"
#include "tvctl/installation/storeaccess.h"

#include <CLI/CLI.hpp>

#include <QJsonObject>

#include <new>
#include <sstream>
#include <string>
#include <vector>

namespace
{
void addGlobalOptions(CLI::App& tool, const Command& command, GlobalOptions& options)
{
    command.addOption("--root", options.root, "The root of the installation, when it is not the own one")
        .named("DIR");
    command.addFlag("--json", options.isJson, "One JSON document on standard output");
    command.addFlag("--no-color,--no-colour", options.isPlain, "No colours");
    // So that they may stand behind the command as well.
    tool.fallthrough();
    tool.set_version_flag("--version", "tvctl " + Common::getBuildVersion().toStdString());
}

void addCommands(const Command& tool)
{
    addStatusCommand(tool);
    addDoctorCommand(tool);
    addSelftestCommand(tool);
    addConfigCommand(tool);
    addExcludeCommand(tool);
    addIocCommand(tool);
    addScanCommand(tool);
    addSweepCommand(tool);
    addUrlCommand(tool);
    addCleanCommand(tool);
    addReloadCommand(tool);
    addDetectionsCommand(tool);
    addQuarantineCommand(tool);
}

/// The whole path of the subcommand that was meant, for the advice to ask for its help.
std::string nameOfParsed(const CLI::App& tool)
{
    std::string name = "tvctl";
    const CLI::App* app = &tool;
    while (!app->get_subcommands().empty()) {
        app = app->get_subcommands().front();
        name += ' ' + app->get_name();
    }
    return name;
}

ExitCode explainUsage(const CLI::App& tool, const CLI::ParseError& problem, Output& output)
{
    if (problem.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        // Help or the version.
        std::ostringstream text;
        tool.exit(problem, text, text);
        output.raw(QByteArray::fromStdString(text.str()));
        return ExitCode::Good;
    }
    // What was taken for nothing else; without it the line would only say that a command is missing.
    const std::vector<std::string> left = tool.remaining(true);
    const bool isUnknown = problem.get_name() == "RequiredError" && !left.empty();
    const QByteArray reason = isUnknown ? QByteArray("there is no command ").append(left.front().c_str())
                                        : QByteArray(problem.what());
    throw ToolError(FileName::toText(reason) + QStringLiteral("; see ") +
                    QString::fromStdString(nameOfParsed(tool)) + QStringLiteral(" --help"));
}

ExitCode runChosen(const Action& chosen, const GlobalOptions& options, Output& output)
{
    if (options.isPlain) {
        output.forbidColours();
    }
    const Installation installation =
        options.root.empty() ? Installation::own() : Installation(pathOf(options.root));
    Session session(output, installation);
    const ExitCode code = chosen(session);
    const QString message = StoreAccess::takeMessage();
    if (!message.isEmpty()) {
        output.warning(message);
    }
    return code;
}

ExitCode parseAndRun(int argc, char* argv[], Output& output)
{
    CLI::App tool("Steers tvfilemon, the real-time file protection, and shows what it found.", "tvctl");
    GlobalOptions options;
    Action chosen;
    declareCommandLine(tool, options, chosen);
    try {
        tool.parse(argc, argv);
    } catch (const CLI::ParseError& problem) {
        // The flag's variable is set only at the end of a parse that finds no fault.
        output.setJson(tool.get_option("--json")->count() > 0);
        return explainUsage(tool, problem, output);
    }
    output.setJson(options.isJson);
    return runChosen(chosen, options, output);
}
} // namespace

void declareCommandLine(CLI::App& tool, GlobalOptions& options, Action& chosen)
{
    const Command command(tool, chosen);
    addGlobalOptions(tool, command, options);
    tool.require_subcommand(1);
    addCommands(command);
}

ExitCode runCommandLine(int argc, char* argv[])
{
    Output output;
    QString problem;
    try {
        return parseAndRun(argc, argv, output);
    } catch (const ToolError& error) {
        problem = error.message();
    } catch (const std::bad_alloc&) {
        problem = QStringLiteral("memory ran out");
    }
    output.error(problem);
    if (output.isJson()) {
        try {
            output.document({{QStringLiteral("error"), FileName::toDisplay(problem)}});
        } catch (const ToolError&) {
            // Standard output is what failed; standard error has told.
            return ExitCode::Error;
        }
    }
    return ExitCode::Error;
}
