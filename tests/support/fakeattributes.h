#pragma once

#include <QByteArray>

struct stat;

/// Stands in for the extended attributes of open files and keeps them in memory, so that tests need no file
/// system that has them.
///
/// Linked into a test it takes the place of fsetxattr, fgetxattr and fremovexattr for the code under test
/// alone. Attributes belong to the file, not to its name.
struct FakeAttributes
{
    /// Forgets all attributes; to be called for each test, as files of a later one get the same numbers.
    static void reset();
    /// Null when the file has none of the name.
    static QByteArray value(const struct stat& file, const QByteArray& name);
    static void setValue(const struct stat& file, const QByteArray& name, const QByteArray& value);
    /// Makes every call fail with this error number; 0 is none.
    static int error;
};
