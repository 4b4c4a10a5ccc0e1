#include "kit/connection.h"

#include "kit/program.h"

#include <cerrno>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>

Connection::Connection(const std::string& address)
{
    int result = 0;
    if (address.front() == '/') {
        sockaddr_un server = {};
        server.sun_family = AF_UNIX;
        address.copy(server.sun_path, sizeof(server.sun_path) - 1);
        m_socket.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        result = ::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&server), sizeof(server));
    } else {
        sockaddr_in server = {};
        server.sin_family = AF_INET;
        server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        server.sin_port = htons(static_cast<uint16_t>(Program::number(address.c_str())));
        m_socket.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int on = 1;
        ::setsockopt(m_socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        result = ::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&server), sizeof(server));
    }
    if (result != 0) {
        Program::fail(address, errno);
    }
}

void Connection::send(const std::string& data)
{
    size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t size = ::send(m_socket.get(), data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (size < 0) {
            Program::fail("send", errno);
        }
        sent += static_cast<size_t>(size);
    }
}

std::string Connection::receive()
{
    const ssize_t size = ::recv(m_socket.get(), m_buffer.data(), m_buffer.size(), 0);
    if (size <= 0) {
        Program::fail("the server ended the connection", size < 0 ? errno : 0);
    }
    return {m_buffer.data(), static_cast<size_t>(size)};
}

std::string Connection::receiveLine()
{
    size_t end = m_rest.find('\0');
    while (end == std::string::npos) {
        m_rest += receive();
        end = m_rest.find('\0');
    }
    std::string line = m_rest.substr(0, end);
    m_rest.erase(0, end + 1);
    return line;
}
