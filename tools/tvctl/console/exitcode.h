#pragma once

/// How the program ends, in the way of other scanners.
enum class ExitCode
{
    /// Done, nothing detected.
    Good = 0,
    /// Something was detected, or a check failed.
    Found = 1,
    /// It could not be done.
    Error = 2
};
