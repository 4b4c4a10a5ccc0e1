#pragma once

#include <map>
#include <string>
#include <vector>

namespace CLI
{
class Option;
}

/// An option or an argument of a Command, on its way to be declared: each function says more about it.
///
/// A handle: copies mean the same option.
class CommandOption
{
public:
    explicit CommandOption(CLI::Option& option);

    CommandOption required() const;
    /// What its value is called in help.
    CommandOption named(const char* type) const;
    CommandOption oneOf(const std::vector<std::string>& values) const;
    /// The keys of `values`.
    template <typename Meaning> CommandOption oneOf(const std::map<std::string, Meaning>& values) const
    {
        std::vector<std::string> names;
        names.reserve(values.size());
        for (const auto& value : values) {
            names.push_back(value.first);
        }
        return oneOf(names);
    }
    CommandOption between(int lowest, int highest) const;
    /// Help tells the value that its variable has now.
    CommandOption showingDefault() const;
    CommandOption notWith(const CommandOption& other) const;
    /// One value each time, and any number of times.
    CommandOption repeatable() const;

private:
    CLI::Option& m_option;
};
