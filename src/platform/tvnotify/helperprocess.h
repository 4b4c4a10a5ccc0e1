#pragma once

#include "common/uniquefd.h"

#include <optional>
#include <string>

#include <sys/types.h>

/// A running helper program and this side of the socket to it; kills and reaps it when it goes.
///
/// Owned by one thread. No signal handler is involved, and no child but this one is ever waited for.
class HelperProcess
{
public:
    /// Starts `program` with nothing of this process but one end of a socket as descriptor 3, standard
    /// streams on /dev/null, and of the environment only `sessionAddress` as DBUS_SESSION_BUS_ADDRESS
    /// unless that is empty. Does not copy this process, whose size would make that slow.
    /// None when it cannot be started; errno tells why.
    static std::optional<HelperProcess> start(const std::string& program, const std::string& sessionAddress);

    HelperProcess(HelperProcess&& other) noexcept;
    HelperProcess& operator=(HelperProcess&& other) = delete;
    ~HelperProcess();

    /// Sends and receives whole datagrams and never blocks. It hangs up when the helper has ended.
    int socket() const
    {
        return m_socket.get();
    }

private:
    HelperProcess(pid_t pid, UniqueFd socket);

    pid_t m_pid;
    UniqueFd m_socket;
};
