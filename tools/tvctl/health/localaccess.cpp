#include "tvctl/health/localaccess.h"

#include <cerrno>

#include <arpa/inet.h>
#include <grp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
constexpr timeval patience = {2, 0};

/// How the process ends that tries it.
enum Status
{
    AdmittedStatus,
    RefusedStatus,
    UnknownStatus
};

/// In the new process, where only system calls may be made.
Status tryAs(uid_t user, quint16 port)
{
    if (::setgroups(0, nullptr) != 0 || ::setresgid(user, user, user) != 0 ||
        ::setresuid(user, user, user) != 0) {
        return UnknownStatus;
    }
    const int connection = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // It limits how long connecting takes as well.
    if (connection < 0 ||
        ::setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience)) != 0) {
        return UnknownStatus;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
        return AdmittedStatus;
    }
    // A filter that drops lets it run into the limit; so does a port whose queue is full.
    return errno == ECONNREFUSED || errno == EPERM || errno == EACCES ? RefusedStatus : UnknownStatus;
}
} // namespace

LocalAccess tryLocalAccess(quint16 port, uid_t user)
{
    const pid_t process = ::fork();
    if (process == 0) {
        ::_exit(tryAs(user, port));
    }
    int status = 0;
    if (process < 0 || TEMP_FAILURE_RETRY(::waitpid(process, &status, 0)) != process || !WIFEXITED(status)) {
        return LocalAccess::Unknown;
    }
    switch (WEXITSTATUS(status)) {
    case AdmittedStatus:
        return LocalAccess::Admitted;
    case RefusedStatus:
        return LocalAccess::Refused;
    default:
        return LocalAccess::Unknown;
    }
}
