#pragma once

#include "common/uniquefd.h"

#include <csignal>

/// While it exists, Ctrl-C (and SIGTERM, SIGHUP) do not end the process: a command looks here whether it is
/// to end, and says what it has done so far. To be made before other threads are.
class Interruption
{
public:
    Interruption();
    /// Signals work as before; those that came are used up.
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    bool isRequested() const;

    /// Readable when it is requested; nobody may read from it.
    int descriptor() const
    {
        return m_signals.get();
    }

private:
    sigset_t m_before = {};
    UniqueFd m_signals;
};
