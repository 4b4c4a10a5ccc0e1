#pragma once

/// Lets libcrypto fail, as it does for want of memory. Linked into a test in front of it.
struct FakeLibcrypto
{
    /// No digest begins.
    static bool beginsNone;
    /// No digest that was begun comes to its end.
    static bool endsNone;
};
