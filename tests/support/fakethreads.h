#pragma once

#include <atomic>

/// Stands in front of the call that makes a thread, for the test's program and the libraries it uses: lets
/// the system have none to spare.
struct FakeThreads
{
    static std::atomic<bool> noneLeft;
};
