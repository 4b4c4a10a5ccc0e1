#pragma once

#include "common/uniquefd.h"

#include <array>
#include <string>

/// A connection to a server of this machine, whose reads and writes block.
class Connection
{
public:
    /// `address` is the number of a TCP port, or the path of a socket. Ends the program on failure.
    explicit Connection(const std::string& address);

    void send(const std::string& data);
    /// What comes by one `recv`. Ends the program when the server is gone.
    std::string receive();
    /// What comes up to a zero byte, which is left out.
    std::string receiveLine();

private:
    UniqueFd m_socket;
    std::array<char, 4096> m_buffer = {};
    /// Received and not yet returned by `receiveLine`.
    std::string m_rest;
};
