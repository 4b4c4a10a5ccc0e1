#pragma once

#include <string>

namespace CLI
{
class App;
}

/// What a completion script looks things up in, as assignments that bash and zsh read alike.
///
/// A key is a command with "/" in the place of spaces, "tvctl/config/set"; for values a colon and the option
/// or the number of the argument, from 0, follow; "..." instead of a number stands for all that come.
///
/// `_tvctl_words`: subcommands and options of a command, "word:description" a line.
/// `_tvctl_values`: what an option or argument takes: words with spaces between, "<file>", "<directory>",
/// or nothing for any text. An option without an entry takes no value.
std::string completionTables(const CLI::App& tool);
