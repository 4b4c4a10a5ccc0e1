#pragma once

#include "common/stopsignal.h"

#include <QThread>

#include <atomic>

class CScanManager;

/// The thread that listens for clients and announces each by its descriptor. It reads and writes nothing.
///
/// To be made on the main thread. The destructor stops it.
class CSocketThread : public QThread
{
    Q_OBJECT

public:
    CSocketThread();
    ~CSocketThread() override;

    /// The TCP port; a new one counts from the next time the socket is bound. Any thread.
    int getSocketPort() const;
    void setSocketPort(int port);

    /// Listens until `stop`, starting anew ten seconds after each end or failure.
    void run() override;

    /// One life of the listening socket, on the calling thread: 1 when it ended, 0 when it could not be made
    /// or bound. At most one client a second is accepted.
    int runSocketListner();

    /// Ends the thread for good, out of any of its waits. Does not wait for it. Any thread.
    void stop();

Q_SIGNALS:
    /// A client is connected; `descriptor` belongs to whoever receives this.
    void clientConnected(int descriptor);

private:
    std::atomic<int> m_socketPort;
    StopSignal m_stop;
    // The listener has no use for it, but the scanner must be there before the first client is.
    CScanManager* m_scanManager;
};
