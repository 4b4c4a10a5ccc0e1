#pragma once

#include <QtGlobal>

#include <sys/types.h>

/// Whether a user of this machine gets through to a port of it.
enum class LocalAccess
{
    Refused,
    Admitted,
    /// It could not be tried: that takes root, or the attempt took too long.
    Unknown
};

/// Tries it as `user`, without any group: a process of its own, with that user's rights alone, connects to
/// TCP `port` on the loopback interface and closes the connection at once. Rules of a packet filter could
/// only be guessed at. Takes two seconds at most.
LocalAccess tryLocalAccess(quint16 port, uid_t user);

/// A user whom nobody gives the port to.
constexpr uid_t anybody = 65534;
