#pragma once

/// A stretch of work that leaves nothing behind outside the process, so that the process may end in the
/// middle of it.
///
/// A scan or the loading of a database may take minutes, and nothing can interrupt it. When the process has
/// to end, another thread waits until the thread that works has something to do that may be left undone, and
/// ends the process there: never between the steps of a detection.
class AbandonableWork
{
public:
    /// Begins; does not return when the end is waited for.
    AbandonableWork();
    /// Ends; does not return when the work is abandoned.
    ~AbandonableWork();
    AbandonableWork(const AbandonableWork&) = delete;
    AbandonableWork& operator=(const AbandonableWork&) = delete;

    /// Waits until some thread does such work, which then never ends, so that the caller may do what only
    /// that thread may do otherwise. Then the process has to end. False when `cancel` was called.
    static bool abandon();

    /// Whether somebody waits in `abandon`: long work that may not be abandoned should give up by itself.
    static bool isAwaited();

    /// Ends `abandon`, or the next one.
    static void cancel();
};
