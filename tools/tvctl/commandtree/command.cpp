#include "tvctl/commandtree/command.h"

#include <CLI/CLI.hpp>

namespace
{
/// As from a variable that a script has not set: taken for no value at all it would mean something else,
/// mostly more than was meant. What arguments may be is left to those who take them.
CommandOption refusingEmpty(CLI::Option& option)
{
    if (!option.get_positional()) {
        option.check(CLI::Validator(
            [](const std::string& value) {
                return value.empty() ? std::string("takes no empty text") : std::string();
            },
            std::string()));
    }
    return CommandOption(option);
}
} // namespace

Command::Command(CLI::App& app, Action& chosen) : m_app(app), m_chosen(chosen)
{
}

Command Command::addCommand(const char* name, const char* description) const
{
    return Command(*m_app.add_subcommand(name, description), m_chosen);
}

Command Command::addGroup(const char* name, const char* description) const
{
    const Command group = addCommand(name, description);
    group.m_app.require_subcommand(1);
    return group;
}

void Command::setFooter(const char* text) const
{
    m_app.footer(text);
}

CommandOption Command::addOption(const char* names, std::string& value, const char* description) const
{
    return refusingEmpty(*m_app.add_option(names, value, description));
}

CommandOption Command::addOption(const char* names, std::optional<std::string>& value,
                                 const char* description) const
{
    return refusingEmpty(*m_app.add_option(names, value, description));
}

CommandOption Command::addOption(const char* names, std::vector<std::string>& values,
                                 const char* description) const
{
    return refusingEmpty(*m_app.add_option(names, values, description));
}

CommandOption Command::addOption(const char* names, int& value, const char* description) const
{
    return CommandOption(*m_app.add_option(names, value, description));
}

CommandOption Command::addFlag(const char* names, bool& isSet, const char* description) const
{
    return CommandOption(*m_app.add_flag(names, isSet, description));
}

void Command::setAction(const Action& action) const
{
    m_app.callback([&chosen = m_chosen, action] { chosen = action; });
}
