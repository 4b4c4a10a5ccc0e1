#include "app/monitorthread.h"

#include "logger/clogger.h"

MonitorThread::MonitorThread() = default;

void MonitorThread::run()
{
    m_monitor.startMonitoring();
}

void MonitorThread::stop()
{
    LOGGER::CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Stopping Monitoring!");
    quit();
    wait();
}
