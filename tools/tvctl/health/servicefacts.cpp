#include "tvctl/health/servicefacts.h"

#include "tvctl/client/portowner.h"

#include <QSet>
#include <QThread>

using std::chrono::milliseconds;

namespace
{
/// How often to look again whether a directory is watched, and how long to wait before that: one that was
/// just made takes the service a moment.
constexpr int watchAttempts = 3;
constexpr unsigned long watchPauseMs = 200;
} // namespace

ServiceFacts ServiceFacts::gather(const Installation& installation, ServiceConnection& connection,
                                  milliseconds limit)
{
    ServiceFacts facts;
    facts.probe = EngineProbe::ask(connection, limit);
    facts.load = readLoadOutcome(installation.logFile());
    facts.processes = ServiceProcess::find(installation);
    QSet<quint64> sockets;
    for (const TcpSocket& socket : tcpSockets()) {
        if (socket.localPort == ServiceConnection::port && socket.state == TcpSocket::Listen) {
            facts.listeners += socket;
            sockets.insert(socket.inode);
        }
    }
    facts.holders = ServiceProcess::holdersOf(sockets);
    return facts;
}

bool ServiceFacts::isLoading() const
{
    return probe.state == ServiceConnection::State::TimedOut && !processes.isEmpty() &&
           !processes.first().isStopped &&
           (load.result == LoadOutcome::Result::Starting || load.result == LoadOutcome::Result::Loading);
}

bool ServiceFacts::isBarred() const
{
    return probe.state == ServiceConnection::State::Barred;
}

WatchFacts WatchFacts::gather(const ServiceFacts& service, milliseconds limit)
{
    WatchFacts facts;
    facts.limits = InotifyLimits::read();
    for (int attempt = 1; attempt <= watchAttempts; ++attempt) {
        facts.use = service.processes.isEmpty() ? std::nullopt : inotifyUseOf(service.processes.first().id);
        facts.need =
            walkWatchedTrees(WatchNeed::watchedRoots(), facts.use ? facts.use->watched : WatchedSet(), limit);
        if (!facts.use || facts.need.unwatched == 0 || !facts.need.isComplete || attempt == watchAttempts) {
            break;
        }
        QThread::msleep(watchPauseMs);
    }
    return facts;
}
