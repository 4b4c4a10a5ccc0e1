#pragma once

#include "tvctl/client/tcptable.h"

#include <QVector>

/// The sockets of this machine's network namespace; empty when they cannot be read. They tell who is behind
/// a port.
///
/// While the service is down, anybody may listen on its port and answer CLEAN to everything: a client that
/// believes its replies has to look who gives them.
QVector<TcpSocket> tcpSockets();
