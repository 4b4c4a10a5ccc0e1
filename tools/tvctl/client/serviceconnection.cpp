#include "tvctl/client/serviceconnection.h"

#include "tvctl/client/portowner.h"
#include "tvctl/client/servicereply.h"

#include <QString>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace
{
/// What the service reads and sends at once.
constexpr int maxMessageBytes = 4096;
constexpr milliseconds slowAfter(5000);
/// At once; longer than what anybody waits for, and fits what poll takes.
constexpr milliseconds longestWait(60 * 60 * 1000);

/// Whether a program of `userId` is to be believed: root's, or one of whoever runs this.
bool isTrusted(uint userId)
{
    return userId == 0 || userId == ::geteuid();
}

sockaddr_in serviceAddress()
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(ServiceConnection::port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// Who is connected to here, when nothing keeps the connection from being made.
std::optional<TcpSocket> findListener()
{
    for (const TcpSocket& socket : tcpSockets()) {
        if (socket.state == TcpSocket::Listen && socket.localPort == ServiceConnection::port &&
            (socket.localAddress == INADDR_ANY || socket.localAddress == INADDR_LOOPBACK)) {
            return socket;
        }
    }
    return std::nullopt;
}
} // namespace

bool ServiceConnection::open(std::optional<milliseconds> timeout)
{
    const Deadline deadline = deadlineAfter(timeout);
    if (!connectToPort(deadline) || !checkListener()) {
        return false;
    }
    m_state = State::Open;
    m_problem.clear();
    const auto reply = exchange(QByteArrayLiteral("MODULE tvctl"), deadline);
    // Only now: the kernel knows no owner of a connection that nobody has accepted yet. And not the listener
    // alone: it may have been another's a moment ago.
    return reply && checkPeer() &&
           (ServiceReply::isRegistered(*reply) ||
            fail(State::Broken, QStringLiteral("what answers on port %1 is not tvfilemon").arg(port)));
}

std::optional<QByteArray> ServiceConnection::ask(const Request& request, std::optional<milliseconds> timeout)
{
    return m_state == State::Open ? exchange(request.bytes, deadlineAfter(timeout)) : std::nullopt;
}

ServiceConnection::Deadline ServiceConnection::deadlineAfter(std::optional<milliseconds> timeout)
{
    return timeout ? std::make_optional(steady_clock::now() + *timeout) : std::nullopt;
}

bool ServiceConnection::connectToPort(const Deadline& deadline)
{
    m_socket.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!m_socket.isValid()) {
        return fail(State::Broken, QStringLiteral("cannot make a socket: %1").arg(qt_error_string(errno)));
    }
    const sockaddr_in address = serviceAddress();
    int error = 0;
    if (::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        error = errno;
    }
    if (error == EINPROGRESS) {
        if (!waitFor(POLLOUT, deadline)) {
            return false;
        }
        socklen_t size = sizeof(error);
        ::getsockopt(m_socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    }
    if (error == ECONNREFUSED) {
        return failRefused();
    }
    return error == 0 ||
           fail(State::Broken,
                QStringLiteral("cannot connect to port %1: %2").arg(port).arg(qt_error_string(error)));
}

bool ServiceConnection::failRefused()
{
    const auto listener = findListener();
    if (!listener) {
        return fail(State::Refused,
                    QStringLiteral("tvfilemon does not run: nobody listens on port %1").arg(port));
    }
    if (!checkOwner(*listener)) {
        return false;
    }
    if (::geteuid() == 0) {
        return fail(State::Broken,
                    QStringLiteral("port %1 is listened to, but refuses connections: a firewall may keep "
                                   "everybody from it")
                        .arg(port));
    }
    return fail(State::Barred, QStringLiteral("only root may ask tvfilemon"));
}

std::optional<QByteArray> ServiceConnection::exchange(const QByteArray& bytes, const Deadline& deadline)
{
    // One send, one receive: there is nothing else that tells where a message ends. What is there before
    // anything was asked would be taken for the reply, and each reply for that of the next request.
    char unasked = 0;
    if (::recv(m_socket.get(), &unasked, 1, MSG_PEEK) > 0) {
        fail(State::Broken, QStringLiteral("the service replies to what it was not asked"));
        return std::nullopt;
    }
    const ssize_t sent = TEMP_FAILURE_RETRY(
        ::send(m_socket.get(), bytes.constData(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL));
    if (sent != bytes.size()) {
        const int error = errno;
        fail(State::Broken,
             QStringLiteral("the service takes no requests: %1")
                 .arg(sent < 0 ? qt_error_string(error) : QStringLiteral("only a part of one was sent")));
        return std::nullopt;
    }
    if (!waitFor(POLLIN, deadline)) {
        return std::nullopt;
    }
    QByteArray reply(maxMessageBytes, Qt::Uninitialized);
    const ssize_t got =
        TEMP_FAILURE_RETRY(::recv(m_socket.get(), reply.data(), static_cast<size_t>(reply.size()), 0));
    if (got <= 0) {
        fail(State::Broken, QStringLiteral("the service ended the connection"));
        return std::nullopt;
    }
    reply.truncate(static_cast<int>(got));
    return reply;
}

bool ServiceConnection::waitFor(short events, const Deadline& deadline)
{
    const auto slow = steady_clock::now() + slowAfter;
    while (true) {
        const auto now = steady_clock::now();
        if (deadline && now >= *deadline) {
            return fail(State::TimedOut,
                        QStringLiteral("tvfilemon does not answer in time: it is busy or hangs"));
        }
        if (m_slowNotice && now >= slow) {
            std::exchange(m_slowNotice, {})();
        }
        auto next = now + longestWait;
        if (deadline) {
            next = std::min(next, *deadline);
        }
        if (m_slowNotice) {
            next = std::min(next, slow);
        }
        // One more, so that it does not spin through the last fraction.
        const auto wait = std::chrono::duration_cast<milliseconds>(next - now) + milliseconds(1);
        // A descriptor below zero is passed over.
        struct pollfd polled[] = {{m_socket.get(), events, 0}, {m_interruption, POLLIN, 0}};
        const int ready = ::poll(polled, std::size(polled), static_cast<int>(wait.count()));
        if (ready > 0) {
            return polled[0].revents != 0 || fail(State::Interrupted, QStringLiteral("interrupted"));
        }
        if (ready < 0 && errno != EINTR) {
            return fail(State::Broken, QStringLiteral("cannot wait: %1").arg(qt_error_string(errno)));
        }
    }
}

bool ServiceConnection::checkListener()
{
    const auto listener = findListener();
    return listener ? checkOwner(*listener)
                    : fail(State::Untrusted,
                           QStringLiteral("cannot tell whose program listens on port %1").arg(port));
}

bool ServiceConnection::checkPeer()
{
    sockaddr_in own = {};
    socklen_t size = sizeof(own);
    ::getsockname(m_socket.get(), reinterpret_cast<sockaddr*>(&own), &size);
    const quint16 ownPort = ntohs(own.sin_port);
    for (const TcpSocket& socket : tcpSockets()) {
        if (socket.localPort == port && socket.remotePort == ownPort &&
            socket.localAddress == INADDR_LOOPBACK && socket.remoteAddress == INADDR_LOOPBACK &&
            socket.inode != 0) {
            return checkOwner(socket);
        }
    }
    return fail(State::Untrusted, QStringLiteral("cannot tell whose program holds port %1").arg(port));
}

bool ServiceConnection::checkOwner(const TcpSocket& socket)
{
    return isTrusted(socket.userId) ||
           fail(State::Untrusted, QStringLiteral("port %1 is held by a program of user %2, which is not "
                                                 "tvfilemon; it was not asked anything")
                                      .arg(port)
                                      .arg(socket.userId));
}

bool ServiceConnection::fail(State state, const QString& problem)
{
    m_socket.reset();
    m_state = state;
    m_problem = problem;
    return false;
}
