#pragma once

/// What is known of kinds of file systems, by the number that statfs gives for them. Pure.
namespace FileSystems
{
/// The kernel makes up what is in it (proc, sysfs ...): there is nothing to scan, and reading may set
/// something off.
bool isPseudo(long type);

/// The kernel of this machine sets the change time of a file itself, at each change. FAT gives out the
/// modification time instead, which a copy takes over from its original; with a network or user space file
/// system it is somebody else who says when; and file systems in memory, and what is laid over another, do
/// not tell when a mapping is written to.
bool keepsChangeTimes(long type);
} // namespace FileSystems
