#pragma once

#include "tvctl/health/finding.h"
#include "tvctl/health/loadoutcome.h"
#include "tvctl/health/signaturefiles.h"
#include "tvctl/installation/updatestatus.h"

#include <QDateTime>
#include <QString>

#include <optional>

/// Checks of the signature databases. Pure.
namespace DatabaseChecks
{
/// Signatures that are older than this do not know what is going round.
constexpr int maxAgeDays = 7;

/// Updates are tried every hour, by a machine that is on.
constexpr int maxDaysWithoutUpdate = 2;

/// They are there and look as they should.
Finding databases(const SignatureFiles& files, const QString& directory);

/// The service could load them the last time, as far as its log tells. When the engine is known to detect
/// something, a failure is only worth a look: it may be a forged line, and what is loaded is in use.
Finding lastLoad(const LoadOutcome& load, const QString& logFile, bool isDetecting);

/// They are young enough.
Finding freshness(const SignatureFiles& files, const QDateTime& now);

/// Updates are tried, and succeed. Without a status there was none yet, which the age tells in the end.
Finding update(const std::optional<UpdateStatus>& status, const QDateTime& now);

/// None of them comes from the future.
Finding clock(const SignatureFiles& files, const QDateTime& now);

/// Whole days from `built` to `now`.
qint64 ageInDays(const QDateTime& built, const QDateTime& now);
} // namespace DatabaseChecks
