#pragma once

#include "tvctl/console/output.h"
#include "tvctl/health/servicefacts.h"
#include "tvctl/health/signaturefiles.h"
#include "tvctl/health/storefacts.h"
#include "tvctl/health/verdict.h"
#include "tvctl/installation/updatestatus.h"

#include <QDateTime>
#include <QJsonObject>
#include <QStringList>

#include <optional>

/// All that `tvctl status` shows.
struct StatusView
{
    /// One screen, printable.
    QStringList lines(const Output& output) const;
    QJsonObject document() const;

    /// When it was looked at.
    QDateTime time;
    ServiceFacts service;
    StoreFacts stores;
    SignatureFiles files;
    /// Of the signatures; nothing when there was none yet.
    std::optional<UpdateStatus> update;
    WatchFacts watches;
    /// -1 when nobody may look into it.
    qint64 quarantineFiles = -1;
    qint64 quarantineBytes = 0;
    Verdict verdict;
};
