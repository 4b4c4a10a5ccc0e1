#pragma once

#include <atomic>

#include <netinet/in.h>

/// The calls that make a listening socket, some of them to fail. The service's own port is never touched: it
/// is replaced by `port`. Linked into a test in front of the C library.
struct FakeSockets
{
    static void reset();

    /// A port of this machine that nobody else listens on while `holder` is open, and that may be shared.
    static std::atomic<int> port;
    static int holder;

    /// Each call fails with its error number; 0 for none.
    static std::atomic<int> socketError;
    static std::atomic<int> optionError;
    static std::atomic<int> bindError;
    static std::atomic<int> listenError;
    static std::atomic<int> acceptError;
    /// After how many failures accepting works again; negative for never.
    static std::atomic<int> acceptFailures;

    /// What was asked for last.
    static int family;
    static int type;
    static int protocol;
    static int optionLevel;
    static int optionName;
    static int optionValue;
    static sockaddr_in address;
    static socklen_t addressSize;
    static std::atomic<int> backlog;
    static std::atomic<int> binds;
};
