#include "fakeservice.h"

#include "common/uniquefd.h"
#include "tvctl/client/portowner.h"
#include "tvctl/client/serviceconnection.h"

#include <atomic>
#include <cstdlib>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
/// 0 while nobody listens.
std::atomic<quint16> listenerPort = 0;
std::atomic<quint16> clientPort = 0;

sockaddr_in loopback(quint16 port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

quint16 portOf(int fd)
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

/// A port that nobody listens on, taken for as long as the program runs.
quint16 deadPort()
{
    static const quint16 port = [] {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopback(0);
        require(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0);
        return portOf(fd);
    }();
    return port;
}
} // namespace

extern "C" int connect(int fd, const sockaddr* address, socklen_t size)
{
    using Connect = int (*)(int, const sockaddr*, socklen_t);
    static const auto real = reinterpret_cast<Connect>(::dlsym(RTLD_NEXT, "connect"));
    const auto* wanted = reinterpret_cast<const sockaddr_in*>(address);
    require(wanted->sin_port == htons(ServiceConnection::port));
    require(wanted->sin_addr.s_addr == htonl(INADDR_LOOPBACK));
    const sockaddr_in other = loopback(listenerPort != 0 ? listenerPort.load() : deadPort());
    const int result = real(fd, reinterpret_cast<const sockaddr*>(&other), size);
    const int error = errno;
    clientPort = portOf(fd);
    errno = error;
    return result;
}

QVector<TcpSocket> tcpSockets()
{
    return FakeService::table();
}

const QByteArray FakeService::end = "(end)";
const QByteArray FakeService::silence = "(silence)";
std::function<QVector<TcpSocket>()> FakeService::table = FakeService::ownTable;

QVector<TcpSocket> FakeService::ownTable()
{
    const uint user = ::geteuid();
    TcpSocket listener;
    listener.localPort = ServiceConnection::port;
    listener.state = TcpSocket::Listen;
    listener.userId = user;
    listener.inode = 1;
    TcpSocket connection;
    connection.localAddress = INADDR_LOOPBACK;
    connection.localPort = ServiceConnection::port;
    connection.remoteAddress = INADDR_LOOPBACK;
    connection.remotePort = clientPort;
    connection.state = TcpSocket::Established;
    connection.userId = user;
    connection.inode = 2;
    // The other end, which is in the table as well.
    TcpSocket client = connection;
    std::swap(client.localPort, client.remotePort);
    client.inode = 3;
    return listenerPort == 0 ? QVector<TcpSocket>() : QVector<TcpSocket>{client, listener, connection};
}

FakeService::FakeService(Answer answer)
    : m_answer(std::move(answer)),
      m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      m_stop(::eventfd(0, EFD_CLOEXEC))
{
    table = ownTable;
    const sockaddr_in address = loopback(0);
    require(::bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0);
    require(::listen(m_listener, 5) == 0);
    listenerPort = portOf(m_listener);
    if (m_answer) {
        m_thread = std::thread(&FakeService::serve, this);
    }
}

FakeService::~FakeService()
{
    listenerPort = 0;
    ::eventfd_write(m_stop, 1);
    if (m_thread.joinable()) {
        m_thread.join();
    }
    ::close(m_stop);
    ::close(m_listener);
}

QVector<QByteArray> FakeService::requests() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

void FakeService::sendUnasked(const QByteArray& bytes) const
{
    const int fd = m_connection;
    require(::send(fd, bytes.constData(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL) == bytes.size());
    // Until the other end has acknowledged all of it.
    int unsent = 0;
    do {
        require(::ioctl(fd, SIOCOUTQ, &unsent) == 0);
    } while (unsent > 0);
}

void FakeService::serve()
{
    for (int number = 0;; ++number) {
        struct pollfd polled[] = {{m_listener, POLLIN, 0}, {m_stop, POLLIN, 0}};
        ::poll(polled, 2, -1);
        if (polled[1].revents != 0) {
            return;
        }
        const UniqueFd connection(::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC));
        m_connection = connection.get();
        serveConnection(number, connection.get());
        m_connection = -1;
    }
}

void FakeService::serveConnection(int number, int fd)
{
    for (int request = 0;; ++request) {
        struct pollfd polled[] = {{fd, POLLIN, 0}, {m_stop, POLLIN, 0}};
        ::poll(polled, 2, -1);
        if (polled[1].revents != 0) {
            return;
        }
        QByteArray bytes(8192, '\0');
        const ssize_t got = ::recv(fd, bytes.data(), static_cast<size_t>(bytes.size()), 0);
        if (got <= 0) {
            return;
        }
        bytes.truncate(static_cast<int>(got));
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_requests += bytes;
        }
        const QByteArray reply = m_answer(number, request, bytes);
        if (reply == end) {
            return;
        }
        if (reply != silence) {
            ::send(fd, reply.constData(), static_cast<size_t>(reply.size()), MSG_NOSIGNAL);
        }
    }
}
