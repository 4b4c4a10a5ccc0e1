#pragma once

#include "common/uniquefd.h"

#include <QSocketNotifier>

#include <memory>

/// Ends the event loop on SIGTERM and SIGINT, so that the service stops in order, and keeps SIGPIPE from
/// ending the process.
///
/// To be made on the main thread after the QCoreApplication, once. A signal that arrives before the loop
/// runs ends it as soon as it does.
class OrderlyStop
{
public:
    OrderlyStop();
    ~OrderlyStop();
    OrderlyStop(const OrderlyStop&) = delete;
    OrderlyStop& operator=(const OrderlyStop&) = delete;

private:
    UniqueFd m_wake;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
