#pragma once

#include "tvctl/health/finding.h"
#include "tvctl/health/localaccess.h"
#include "tvctl/health/networkexposure.h"
#include "tvctl/health/servicefacts.h"
#include "tvctl/health/signaturefiles.h"
#include "tvctl/installation/installation.h"

#include <QString>
#include <QStringList>

/// Checks of the running service. Pure: they judge the facts that they are given.
namespace ServiceChecks
{
/// It runs, once, and answers.
Finding service(const ServiceFacts& facts);

/// Nobody else listens on its port. `isRoot`: whether one may see who does.
Finding portOwner(const ServiceFacts& facts, const Installation& installation, bool isRoot);

/// Its engine recognises the test pattern. `files` are the signatures that it has.
Finding engine(const ServiceFacts& facts, const SignatureFiles& files, const QString& logFile);

/// Only programs of this machine reach its port: whoever does may have it delete files.
Finding portExposure(const ServiceFacts& facts, const QStringList& interfaces, const FirewallView& firewall);

/// Of the users of this machine, only root and those who were chosen reach its port, as an attempt by another
/// one came to: whoever does may have it delete files.
Finding portUsers(const ServiceFacts& facts, LocalAccess access);

/// It watches every directory that it should.
Finding watches(const ServiceFacts& service, const WatchFacts& facts);
} // namespace ServiceChecks
