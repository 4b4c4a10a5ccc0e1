#include "socket/cclientthread.h"

#include "logger/clogger.h"

#include <array>
#include <cerrno>
#include <chrono>

#include <sys/socket.h>

using LOGGER::CLogger;

namespace
{
constexpr size_t receiveSize = 4096;
constexpr std::chrono::milliseconds endPause(100);
/// A thousand clients that wait should not take 8 GB of addresses. Reading and logging take a tenth of this.
constexpr uint threadStackSize = 256 * 1024;
} // namespace

CClientThread::CClientThread()
{
    setStackSize(threadStackSize);
}

CClientThread::~CClientThread() = default;

int CClientThread::getClientSocket()
{
    return m_clientSocket;
}

void CClientThread::setClientSocket(int socket)
{
    m_clientSocket = socket;
}

QString CClientThread::getModuleName() const
{
    return m_moduleName;
}

void CClientThread::setModuleName(const QString& name)
{
    m_moduleName = name;
}

void CClientThread::run()
{
    connectToSocket();
}

void CClientThread::messageServed()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_unserved.empty()) {
        m_unservedBytes -= m_unserved.front();
        m_unserved.pop_front();
    }
    m_changed.notify_all();
}

void CClientThread::stop()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stopping = true;
    m_changed.notify_all();
}

bool CClientThread::waitForRoom()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] {
        return m_stopping || (m_unserved.size() < unservedLimit && m_unservedBytes < unservedBytesLimit);
    });
    return !m_stopping;
}

void CClientThread::noteReceived(size_t size)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_unserved.push_back(size);
    m_unservedBytes += size;
}

void CClientThread::pauseBeforeEnd()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, endPause, [this] { return m_stopping; });
}

void CClientThread::connectToSocket()
{
    // Room for the zero byte that ends a message of full size.
    std::array<char, receiveSize + 1> buffer = {};
    int error = 0;
    while (waitForRoom()) {
        // A client that closes sets no error number; an old one must not be told as the reason.
        errno = 0;
        const ssize_t size = ::recv(m_clientSocket, buffer.data(), receiveSize, 0);
        error = errno;
        if (size <= 0) {
            break;
        }
        buffer[static_cast<size_t>(size)] = '\0';
        noteReceived(static_cast<size_t>(size));
        CLogger::getInstance()->Debug(__PRETTY_FUNCTION__, "Recieved From Socket: %s", buffer.data());
        m_lastMessage = QString::fromUtf8(buffer.data());
        Q_EMIT receivedMessage(m_clientSocket, m_lastMessage);
    }
    CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Client Disconnected or timeouted");
    Q_EMIT clientDisconnected(m_clientSocket);
    pauseBeforeEnd();
}
