#pragma once

#include "tvctl/health/servicefacts.h"
#include "tvctl/health/signaturefiles.h"
#include "tvctl/health/storefacts.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

/// Whether somebody is protected.
struct Verdict
{
    enum class State
    {
        Protected,
        NotProtected,
        /// What is known is good, but not enough is known.
        Unknown
    };

    /// The state and why, in one line for people.
    QString text() const;

    State state = State::Unknown;
    /// Why not, or why that cannot be told; the weightiest first.
    QStringList reasons;
    /// What does not take the protection away, and deserves a look.
    QStringList warnings;
};

/// Judges what was seen at the time `now`. Pure.
Verdict judge(const ServiceFacts& service, const StoreFacts& stores, const SignatureFiles& files,
              const WatchFacts& watches, const QDateTime& now);
