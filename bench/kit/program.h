#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What every program of the benchmarks needs of its arguments. Whatever is wrong ends the program: a figure
/// that was measured of something else is worse than none.
namespace Program
{
/// Says on standard error what failed, with the error number's text when there is one, and ends with 1.
[[noreturn]] void fail(const std::string& what, int error = 0);
/// Ends the program unless there are `count` arguments; `usage` tells which.
void expectArguments(int argc, int count, const char* usage);

/// A whole number that is not below zero.
int64_t number(const char* text);
std::string contentOf(const std::string& path);
/// Makes the file and writes it in one go: one event of its creation, and one of a modification.
void writeFile(const std::string& path, const std::string& content);
/// The lines of the file; there is at least one.
std::vector<std::string> linesOf(const std::string& path);

/// Says so to whoever started this program, and waits for it to be ready.
void tellReady();
} // namespace Program
