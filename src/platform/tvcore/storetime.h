#pragma once

#include <QDateTime>
#include <QVariant>

/// Times on their way into a store, which keeps them as milliseconds since 1970, UTC. Reentrant.
namespace StoreTime
{
/// NULL for a time that is not valid.
QVariant toBound(const QDateTime& time);
} // namespace StoreTime
