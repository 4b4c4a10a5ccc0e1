#include "socket/csocketthread.h"

#include "common/uniquefd.h"
#include "logger/clogger.h"
#include "scan/cscanmanager.h"
#include "socket/descriptorreserve.h"

#include <cerrno>
#include <chrono>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

using LOGGER::CLogger;

namespace
{
constexpr int defaultPort = 8889;
constexpr int backlog = 2;
/// Bounds what a flood of connections costs: each brings a thread.
constexpr std::chrono::seconds acceptPause(1);
constexpr std::chrono::seconds retryPause(10);
} // namespace

CSocketThread::CSocketThread() : m_socketPort(defaultPort), m_scanManager(CScanManager::getInstance())
{
}

CSocketThread::~CSocketThread()
{
    stop();
    wait();
}

int CSocketThread::getSocketPort() const
{
    return m_socketPort;
}

void CSocketThread::setSocketPort(int port)
{
    m_socketPort = port;
}

void CSocketThread::stop()
{
    m_stop.raise();
}

void CSocketThread::run()
{
    while (!m_stop.isRaised()) {
        runSocketListner();
        m_stop.sleep(retryPause);
    }
}

int CSocketThread::runSocketListner()
{
    CLogger::getInstance()->Debug(__PRETTY_FUNCTION__, "IN");
    // Not blocking: a client that is gone again before it is accepted must not keep `stop` from being seen.
    UniqueFd listener =
        outsideReserve(UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP)));
    if (!listener.isValid()) {
        const int error = errno;
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Socket Failed!");
        CLogger::getInstance()->Debug(__PRETTY_FUNCTION__, "OUT");
        return 0;
    }

    const int on = 1;
    if (::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEPORT, &on, sizeof(on)) != 0) {
        const int error = errno;
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "setsockopt Failed!");
    }

    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::inet_addr("0.0.0.0");
    address.sin_port = htons(static_cast<uint16_t>(m_socketPort));
    if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        const int error = errno;
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "bind Failed!");
        CLogger::getInstance()->Debug(__PRETTY_FUNCTION__, "OUT");
        // Left open, one for each failure: how often the port was taken can be read from the process's
        // descriptors, and those who watch the service do. Out of the reserve there comes none.
        listener.release();
        return 0;
    }

    CLogger::getInstance()->Info(__PRETTY_FUNCTION__, "Socket Listening");
    // A failure shows at once: accept fails then, too.
    ::listen(listener.get(), backlog);
    while (m_stop.waitForInput(listener.get())) {
        sockaddr_in peer = {};
        socklen_t peerSize = sizeof(peer);
        UniqueFd client = outsideReserve(
            UniqueFd(::accept4(listener.get(), reinterpret_cast<sockaddr*>(&peer), &peerSize, SOCK_CLOEXEC)));
        if (!client.isValid()) {
            // The client is gone already.
            if (errno == EAGAIN || errno == EINTR) {
                continue;
            }
            break;
        }
        CLogger::getInstance()->Info(__PRETTY_FUNCTION__, "%s - Connected on socket. - %d",
                                     ::inet_ntoa(peer.sin_addr), client.get());
        Q_EMIT clientConnected(client.release());
        m_stop.sleep(acceptPause);
    }
    listener.reset();
    CLogger::getInstance()->Debug(__PRETTY_FUNCTION__, "OUT");
    return 1;
}
