#pragma once

#include "common/uniquefd.h"

#include <QByteArray>

#include <signal.h>

/// Standard output of a command that runs until it is told to end: by SIGINT or SIGTERM, or because nobody
/// reads any more.
///
/// Holds these signals back as long as it lives, also SIGPIPE, and then gives back what was before. A reader
/// that is slow holds the command up, but never its end.
class StreamOutput
{
public:
    StreamOutput();
    ~StreamOutput();
    StreamOutput(const StreamOutput&) = delete;
    StreamOutput& operator=(const StreamOutput&) = delete;

    /// Hands on all of `bytes`. False when the command has to end; throws ToolError when the output takes no
    /// more for another reason.
    bool write(const QByteArray& bytes);

    /// Waits that long. False as above.
    bool wait(int milliseconds);

private:
    /// Waits until output can be taken, with POLLOUT as `events`, or for the time.
    enum class Event
    {
        None,
        Writable,
        End
    };
    Event waitFor(short events, int milliseconds) const;

    sigset_t m_before = {};
    UniqueFd m_signals;
};
