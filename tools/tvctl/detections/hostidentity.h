#pragma once

#include <QString>

/// How this machine is told from others where many send their events.
struct HostIdentity
{
    /// Empty what the machine does not have.
    static HostIdentity own();

    QString hostname;
    /// Of /etc/machine-id, 32 hexadecimal digits.
    QString id;
};
