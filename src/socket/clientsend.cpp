#include "socket/clientsend.h"

#include <sys/socket.h>
#include <sys/time.h>

namespace
{
/// One client that does not read its replies may hold up all the others, and the file monitor, by this much.
constexpr timeval longestSend = {0, 100000};
} // namespace

void limitSendTime(int socket)
{
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &longestSend, sizeof(longestSend));
}

ssize_t sendToClient(int socket, const QByteArray& text)
{
    const ssize_t sent = ::send(socket, text.constData(), static_cast<size_t>(text.size()), MSG_NOSIGNAL);
    if (sent != text.size()) {
        ::shutdown(socket, SHUT_RDWR);
    }
    return sent;
}
