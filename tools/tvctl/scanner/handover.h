#pragma once

#include "common/uniquefd.h"
#include "tvctl/client/serviceconnection.h"

#include <QByteArray>

/// Hands something that this process has open over to the service: not by its path, which others may lead
/// elsewhere at any moment, but by the kernel's link to it in /proc, which only this process can change.
///
/// The service follows such a link when it may look into this process: when it is root's and unconfined, or
/// of the same user and has every capability that this process has; see `dropCapabilities`.
class HandOver
{
public:
    /// Asks the service once whether it can be done: to scan a file that lies in memory and holds nothing.
    /// What is believed is that this very file was read, whatever the service answers.
    static bool isPossible(ServiceConnection& connection);

    /// `descriptor` has to stay open as long.
    explicit HandOver(int descriptor);

    /// What it is called meanwhile.
    QByteArray path() const;

private:
    const int m_original;
    /// Invalid when there is no other number for it.
    const UniqueFd m_rare;
};
