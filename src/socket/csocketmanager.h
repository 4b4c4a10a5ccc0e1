#pragma once

#include "socket/csocketthread.h"

#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>

#include <deque>
#include <functional>

class CClientThread;
class CScanManager;
class IOCScanManager;

/// The command server: owns the listener and the clients, and answers each message by one reply.
///
/// Made and used on the main thread, where all requests of all clients are served one after another; takes
/// no lock. It makes both scan managers. docs/protocol.md tells what is said on the wire.
class CSocketManager : public QObject
{
    Q_OBJECT

public:
    static CSocketManager* getInstance();
    /// Stops and destroys the manager; a pointer from `getInstance` must not be used after it, one from a
    /// later call included.
    static void releaseInstance();

    /// Starts the listener unless it runs. Clients are served when the event loop runs.
    void startListening();

    /// Ends the listener and all clients' threads, and closes the connections. What clients still had waiting
    /// is not served any more. For the end of the process, after the event loop: it cannot be started again.
    void stop();

public Q_SLOTS:
    /// Takes over the descriptor `socket` and starts reading from it.
    void onClientConnected(int socket);
    void onClientReceivedMessage(const int& socket, const QString& message);
    /// Sends `message` up to its first zero character; returns what `send` returned.
    int onClientSendMessage(const int& socket, const QString& message);
    /// Forgets the client and closes its descriptor: it comes after all its messages, so all were answered.
    void onClientDisconnected(const int& socket);

private:
    CSocketManager();
    ~CSocketManager() override;

    /// Has `work` done when everything that was announced before it is done: one piece in each turn of the
    /// event loop, so that a client who has many requests waiting does not keep the loop from everything
    /// else. At once when nothing waits and this turn had none yet.
    void doInTurn(std::function<void()> work);
    void doNext();

    static CSocketManager* _instance;

    CScanManager* m_scanManager;
    IOCScanManager* m_iocScanManager;
    CSocketThread m_listener;
    QMap<int, CClientThread*> m_clients;
    QMap<int, QString> m_moduleNames;
    /// Every client's thread that was started and did not end yet, those of `m_clients` included.
    QSet<CClientThread*> m_threads;
    std::deque<std::function<void()>> m_waiting;
    /// This turn of the event loop has done its piece.
    bool m_isTurnOver = false;
};
