#pragma once

#include "tvctl/client/serviceconnection.h"
#include "tvctl/client/servicereply.h"

#include <QString>

#include <chrono>

/// Whether the service answers, and whether its engine finds anything: it is given the test pattern as a
/// text. The log could say so too, but others write into it by the names of their files.
struct EngineProbe
{
    using Result = ServiceReply::Scan::Result;

    /// Asks it, for `limit` at most. `connection` is not yet open.
    static EngineProbe ask(ServiceConnection& connection, std::chrono::milliseconds limit);

    bool answers() const
    {
        return state == ServiceConnection::State::Open;
    }
    bool detects() const
    {
        return answers() && engine == Result::Infected;
    }

    ServiceConnection::State state = ServiceConnection::State::Closed;
    /// Why it does not answer, for people.
    QString problem;
    /// What it said to the pattern; Unknown when it does not answer.
    Result engine = Result::Unknown;
    /// libclamav's number, for Failed.
    int errorCode = 0;
};
