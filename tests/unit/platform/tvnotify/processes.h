#pragma once

#include <QByteArray>
#include <QList>

#include <sys/types.h>

/// The processes whose parent is `parent`, zombies included.
QList<pid_t> childrenOf(pid_t parent);

/// The one letter of the state of `process`: 'Z' for a zombie, 0 when there is none.
char stateOf(pid_t process);

/// The process has ended; whether its parent knows is another question.
bool hasEnded(pid_t process);

/// How many descriptors `process` holds open.
int descriptorCount(pid_t process);
