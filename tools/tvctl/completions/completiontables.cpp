#include "tvctl/completions/completiontables.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <set>
#include <sstream>
#include <vector>

namespace
{
std::string shellQuoted(const std::string& text)
{
    std::string result = "'";
    for (const char character : text) {
        result += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return result + '\'';
}

/// "TEXT:{a,b}" to "a b"; the kinds of paths by the names that help shows for them.
std::string valuesOf(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    const auto start = type.find('{');
    const auto end = type.find('}', start);
    if (end != std::string::npos) {
        std::string choices = type.substr(start + 1, end - start - 1);
        std::replace(choices.begin(), choices.end(), ',', ' ');
        return choices;
    }
    static const std::set<std::string> files = {"FILE", "PATH"};
    const std::string name = option.get_positional() ? option.get_name(true) : type;
    if (files.count(name) != 0 || files.count(type) != 0) {
        return "<file>";
    }
    return type == "DIR" ? "<directory>" : "";
}

std::string wordLine(const std::string& word, const std::string& description)
{
    return word + ':' + description + '\n';
}

void addOption(const CLI::Option& option, const std::string& key, std::string& words, std::ostringstream& out)
{
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) {
        names.push_back('-' + name);
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    for (const std::string& name : names) {
        words += wordLine(name, option.get_description());
        if (option.get_items_expected_max() > 0) {
            out << "_tvctl_values[" << key << ':' << name << "]=" << shellQuoted(valuesOf(option)) << '\n';
        }
    }
}

void addCommand(const CLI::App& app, const std::string& key, std::ostringstream& out)
{
    const auto subcommands = app.get_subcommands([](const CLI::App*) { return true; });
    std::string words;
    for (const CLI::App* sub : subcommands) {
        words += wordLine(sub->get_name(), sub->get_description());
    }
    int argument = 0;
    for (const CLI::Option* option : app.get_options()) {
        if (!option->get_positional()) {
            addOption(*option, key, words, out);
            continue;
        }
        const std::string place = option->get_items_expected_max() > 1 ? "..." : std::to_string(argument);
        ++argument;
        out << "_tvctl_values[" << key << ':' << place << "]=" << shellQuoted(valuesOf(*option)) << '\n';
    }
    out << "_tvctl_words[" << key << "]=" << shellQuoted(words) << '\n';
    for (const CLI::App* sub : subcommands) {
        addCommand(*sub, key + '/' + sub->get_name(), out);
    }
}
} // namespace

std::string completionTables(const CLI::App& tool)
{
    std::ostringstream out;
    addCommand(tool, "tvctl", out);
    return out.str();
}
