#pragma once

#include "tvctl/client/tcptable.h"
#include "tvctl/health/engineprobe.h"
#include "tvctl/health/inotifyuse.h"
#include "tvctl/health/loadoutcome.h"
#include "tvctl/health/serviceprocess.h"
#include "tvctl/health/watchneed.h"
#include "tvctl/installation/installation.h"

#include <QVector>

#include <chrono>
#include <optional>

/// The running service, seen from outside.
struct ServiceFacts
{
    /// Asks the service, for `limit` at most, over `connection`, which is not yet open, and looks for its
    /// process.
    static ServiceFacts gather(const Installation& installation, ServiceConnection& connection,
                               std::chrono::milliseconds limit);

    /// It has started, or was told to, and reads its signatures: until then it answers nobody.
    bool isLoading() const;

    /// The firewall does not let this user ask it.
    bool isBarred() const;

    EngineProbe probe;
    LoadOutcome load;
    /// Those of the installation's program; more than one share the port between them.
    QVector<RunningProcess> processes;
    /// What listens on the service's port.
    QVector<TcpSocket> listeners;
    /// Who holds these. Without root's rights there are none but one's own.
    QVector<RunningProcess> holders;
};

/// What is watched, and what would have to be.
struct WatchFacts
{
    /// Walks the watched trees, for `limit` at most.
    static WatchFacts gather(const ServiceFacts& service, std::chrono::milliseconds limit);

    InotifyLimits limits;
    WatchNeed need;
    /// Nothing when there is no service, or not for these eyes.
    std::optional<InotifyUse> use;
};
