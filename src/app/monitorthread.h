#pragma once

#include "monitor/filemonitor.h"

#include <QThread>

/// A file monitor to be started from a thread of its own.
///
/// The service does not use it: its monitor runs on the main thread. It is part of the class set.
class MonitorThread : public QThread
{
    Q_OBJECT

public:
    MonitorThread();

    /// Starts the monitor and returns; no event loop is run here.
    void run() override;
    /// Ends the thread and waits for that, without a time limit.
    void stop();

Q_SIGNALS:
    void aboutToStop();

private:
    FileMonitor m_monitor;
};
