#pragma once

#include "common/uniquefd.h"

#include <atomic>
#include <chrono>

/// A request to stop, raised once by any thread, that ends the waits of another thread at once.
class StopSignal
{
public:
    StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    void raise();
    bool isRaised() const
    {
        return m_raised;
    }

    /// Sleeps for `time`, or until the request is raised.
    void sleep(std::chrono::milliseconds time) const;

    /// Waits until `fd` is readable or has an error. False when the request is raised.
    bool waitForInput(int fd) const;

private:
    std::atomic<bool> m_raised = false;
    /// Readable from the moment of the request on.
    UniqueFd m_wake;
};
