#pragma once

/// Makes SQLite's access to files whose path contains `name` fail, in programs that link faultyfiles.cpp:
/// permissions and read-only file systems stop nobody who runs tests as root, and disks rarely fail on
/// demand.
namespace FaultyFiles
{
enum class Fault
{
    None,
    /// They cannot be opened at all: permission denied.
    Unreadable,
    /// They cannot be opened for writing, nor created: the file system is read-only.
    ReadOnly,
    /// They can be opened, and reading from them fails: the disk is broken.
    ReadError,
    /// Only what lies behind their first page fails to be read.
    LateReadError,
    /// Only what lies behind their second page.
    LaterReadError
};

void inject(Fault fault, const char* name);
} // namespace FaultyFiles
