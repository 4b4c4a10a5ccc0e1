#pragma once

#include <QByteArray>

/// Lets opening or reading a file of this process fail, and counts what was read. Linked into a test in front
/// of the C library.
struct FakeFiles
{
    static void reset();

    /// Opening for reading fails with this error number; 0 for none. What only looks at a path is not
    /// touched.
    static int openError;
    /// Only looking at a path fails with this error number; 0 for none.
    static int lookError;
    /// Reading fails with this error number from the read number `readErrorAt` on; 0 for none.
    static int readError;
    static int readErrorAt;
    /// Since the last reset.
    static int opened;
    static int reads;
    static size_t largestRead;
};
