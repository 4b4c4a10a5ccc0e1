#pragma once

#include <QByteArray>

#include <sys/types.h>

/// Lets a send to the connection `socket` wait for a client that does not read for 100 ms at most.
void limitSendTime(int socket);

/// Sends `text` by a single call and returns what that returned. A connection that did not take it all, in
/// the time that limitSendTime allows, is shut down: what follows on it would be misread. It is not closed.
/// A peer that is gone raises no signal.
ssize_t sendToClient(int socket, const QByteArray& text);
