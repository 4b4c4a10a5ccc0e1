#pragma once

#include <QString>
#include <QThread>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>

/// The thread that reads what one client sends and announces each piece received as one message.
///
/// The descriptor stays its maker's, who closes it when the client is announced as disconnected: the
/// thread does not touch it from then on. While enough messages wait to be served, nothing more is read, so
/// that not even a thousand clients can fill the memory.
class CClientThread : public QThread
{
    Q_OBJECT

public:
    /// How many messages may wait.
    static constexpr int unservedLimit = 64;
    /// Those that wait have no more bytes than this when one more is received.
    static constexpr size_t unservedBytesLimit = 16384;

    CClientThread();
    ~CClientThread() override;

    /// The descriptor; to be set before the thread is started.
    int getClientSocket();
    void setClientSocket(int socket);

    QString getModuleName() const;
    void setModuleName(const QString& name);

    void run() override;

    /// To be called once for each message received, when it was answered. Any thread.
    void messageServed();

    /// Ends the thread, out of its waits; a blocked reading is ended by shutting the connection down. Does
    /// not wait for it. Any thread.
    void stop();

Q_SIGNALS:
    void receivedMessage(const int& socket, const QString& message);
    void sendMessage(const int& socket, const QString& text);
    /// The last signal of a client.
    void clientDisconnected(const int& socket);

public:
    /// Reads until the connection ends or cannot be read, or until `stop`.
    Q_INVOKABLE void connectToSocket();

private:
    /// False when the thread is to stop.
    bool waitForRoom();
    void noteReceived(size_t size);
    void pauseBeforeEnd();

    int m_clientSocket = -1;
    QString m_lastMessage;
    QString m_moduleName;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    /// The sizes of the messages that wait, in their order, and what they come to.
    std::deque<size_t> m_unserved;
    size_t m_unservedBytes = 0;
    bool m_stopping = false;
};
