#pragma once

#include "common/stopsignal.h"
#include "common/uniquefd.h"

#include <QSocketNotifier>

#include <functional>
#include <memory>
#include <thread>

/// Ends the event loop on SIGTERM and SIGINT, so that the service stops in order, and keeps SIGPIPE from
/// ending the process.
///
/// To be made on the main thread after the QCoreApplication, once. A signal that arrives before the loop
/// runs ends it as soon as it does. When this is not destroyed soon after the signal, because a long
/// AbandonableWork keeps the main thread from its loop, the process ends in the middle of that, with status
/// 0.
class OrderlyStop
{
public:
    /// `lastWork` is done before the process ends in the middle of some work: on a thread of its own, while
    /// the one that works does nothing else.
    explicit OrderlyStop(std::function<void()> lastWork);
    ~OrderlyStop();
    OrderlyStop(const OrderlyStop&) = delete;
    OrderlyStop& operator=(const OrderlyStop&) = delete;

private:
    void startThread();
    void endWhenLate();

    const std::function<void()> m_lastWork;
    UniqueFd m_wake;
    std::unique_ptr<QSocketNotifier> m_notifier;
    /// The orderly end is at its end, and the thread not needed any more.
    StopSignal m_ended;
    std::thread m_thread;
};
