#include "tvctl/commandtree/commandoption.h"

#include <CLI/CLI.hpp>

CommandOption::CommandOption(CLI::Option& option) : m_option(option)
{
}

CommandOption CommandOption::required() const
{
    m_option.required();
    return *this;
}

CommandOption CommandOption::named(const char* type) const
{
    m_option.type_name(type);
    return *this;
}

CommandOption CommandOption::oneOf(const std::vector<std::string>& values) const
{
    m_option.check(CLI::IsMember(values));
    return *this;
}

CommandOption CommandOption::between(int lowest, int highest) const
{
    m_option.check(CLI::Range(lowest, highest));
    return *this;
}

CommandOption CommandOption::showingDefault() const
{
    m_option.capture_default_str();
    return *this;
}

CommandOption CommandOption::notWith(const CommandOption& other) const
{
    m_option.excludes(&other.m_option);
    return *this;
}

CommandOption CommandOption::repeatable() const
{
    m_option.expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    return *this;
}
