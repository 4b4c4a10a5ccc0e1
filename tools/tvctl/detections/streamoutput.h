#pragma once

#include "tvctl/console/interruption.h"

#include <QByteArray>

/// Standard output of a command that runs until it is told to end: by an Interruption, or because nobody
/// reads any more.
///
/// A reader that is slow holds the command up, but never its end.
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
    enum class Event
    {
        None,
        Writable,
        End
    };
    /// Waits that long until one of `events`, of those that poll(2) knows, or the end.
    Event waitFor(short events, int milliseconds) const;

    const Interruption m_interruption;
    struct sigaction m_brokenPipeBefore = {};
};
