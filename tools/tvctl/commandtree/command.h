#pragma once

#include "tvctl/commandtree/action.h"
#include "tvctl/commandtree/commandoption.h"

#include <optional>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

/// A command as it is declared: its name, what it takes, and what it does.
///
/// Commands declare themselves through this and not to CLI11, whose headers alone take a compiler longer than
/// all that most commands are. A handle: copies mean the same command, which the CLI::App owns. The variables
/// given here are filled by the parse, and have to live until the action has run.
class Command
{
public:
    /// `chosen` gets the action of the command that the command line names.
    Command(CLI::App& app, Action& chosen);

    Command addCommand(const char* name, const char* description) const;
    /// A group of commands, of which one has to be named.
    Command addGroup(const char* name, const char* description) const;

    /// What help says at its end.
    void setFooter(const char* text) const;

    /// With dashes in front an option, which takes no empty text, otherwise an argument.
    CommandOption addOption(const char* names, std::string& value, const char* description) const;
    CommandOption addOption(const char* names, std::optional<std::string>& value,
                            const char* description) const;
    /// Of an argument any number, as long as nothing else is said.
    CommandOption addOption(const char* names, std::vector<std::string>& values,
                            const char* description) const;
    CommandOption addOption(const char* names, int& value, const char* description) const;
    CommandOption addFlag(const char* names, bool& isSet, const char* description) const;

    void setAction(const Action& action) const;

private:
    CLI::App& m_app;
    Action& m_chosen;
};
