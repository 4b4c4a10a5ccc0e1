#pragma once

#include "tvctl/client/tcptable.h"

#include <QByteArray>
#include <QVector>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

/// Somebody who listens in the place of the service, on a port of its own, and what the kernel's table says
/// about it. Linked into a test, whoever connects to the service's port comes here instead.
///
/// One at a time.
class FakeService
{
public:
    /// Gets the number of the connection and of the request in it, both from 0, and the request; returns the
    /// reply. Runs on the service's thread.
    using Answer = std::function<QByteArray(int connection, int request, const QByteArray& bytes)>;

    /// What `Answer` returns to end the connection, and to say nothing.
    static const QByteArray end;
    static const QByteArray silence;

    /// Accepts connections and answers; without `answer` it listens and accepts nobody.
    explicit FakeService(Answer answer = {});
    ~FakeService();
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    /// What came, in the order in which it came.
    QVector<QByteArray> requests() const;

    /// Sends to the one who is connected, who has it when this returns.
    void sendUnasked(const QByteArray& bytes) const;

    /// The listener and the connections of the one that is being tested, both of this user.
    static QVector<TcpSocket> ownTable();
    /// What `tcpSockets` answers; `ownTable` until a test says otherwise.
    static std::function<QVector<TcpSocket>()> table;

private:
    void serve();
    void serveConnection(int number, int fd);

    const Answer m_answer;
    int m_listener = -1;
    int m_stop = -1;
    std::atomic<int> m_connection = -1;
    mutable std::mutex m_mutex;
    QVector<QByteArray> m_requests;
    std::thread m_thread;
};
