#include "tvctl/commandline.h"
#include "tvctl/completions/completiontables.h"

#include <CLI/CLI.hpp>

#include <QCoreApplication>

#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace
{
int putTables(const char* templateFile, const char* outputFile)
{
    CLI::App tool("", "tvctl");
    GlobalOptions options;
    Action chosen;
    declareCommandLine(tool, options, chosen);

    std::ostringstream content;
    content << std::ifstream(templateFile).rdbuf();
    std::string script = content.str();
    const std::string mark = "@TABLES@\n";
    const auto place = script.find(mark);
    if (place == std::string::npos) {
        std::cerr << templateFile << ": no line " << mark;
        return 2;
    }
    script.replace(place, mark.size(), completionTables(tool));
    std::ofstream output(outputFile);
    output << script;
    return output.flush() ? 0 : 2;
}
} // namespace

/// tvctl_completions TEMPLATE OUTPUT: puts the tables into the template of a completion script, in the place
/// of the line "@TABLES@". For the build only.
int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc != 3) {
        std::cerr << "usage: tvctl_completions TEMPLATE OUTPUT\n";
        return 2;
    }
    try {
        return putTables(argv[1], argv[2]);
    } catch (const std::exception& problem) {
        std::cerr << argv[1] << ": " << problem.what() << '\n';
        return 2;
    }
}
