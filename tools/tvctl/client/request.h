#pragma once

#include <QByteArray>
#include <QString>

/// A request to the service as the bytes that are sent.
struct Request
{
    /// Nothing of the kind can be sent.
    bool isValid() const
    {
        return problem.isEmpty();
    }

    QByteArray bytes;
    /// Why not, for people; empty when it can.
    QString problem;
};

/// Puts `command` and `argument` together. The protocol carries neither line ends nor zero bytes nor names
/// that are no UTF-8, and at most 4096 bytes: what the service would read as something else is not sent.
/// Pure.
Request makeRequest(const QByteArray& command, const QString& argument);

/// A request without an argument. Pure.
Request makeRequest(const QByteArray& command);
