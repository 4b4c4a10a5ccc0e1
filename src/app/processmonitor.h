#pragma once

#include <QObject>

/// The place where processes will be monitored; it monitors none.
class ProcessMonitor : public QObject
{
    Q_OBJECT

public:
    ProcessMonitor();

    /// Does nothing; always false.
    bool startMonitoring();
};
