#include "app/processmonitor.h"

ProcessMonitor::ProcessMonitor() = default;

bool ProcessMonitor::startMonitoring()
{
    return false;
}
