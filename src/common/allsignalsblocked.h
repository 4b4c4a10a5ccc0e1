#pragma once

#include <csignal>

/// Keeps signals off a thread that is started while this stands: the handlers of a process expect the thread
/// that installed them.
class AllSignalsBlocked
{
public:
    AllSignalsBlocked()
    {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~AllSignalsBlocked()
    {
        ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

private:
    sigset_t m_before;
};
