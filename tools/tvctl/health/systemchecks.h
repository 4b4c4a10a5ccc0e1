#pragma once

#include "tvctl/health/directoryfacts.h"
#include "tvctl/health/finding.h"
#include "tvctl/health/inotifyuse.h"
#include "tvctl/health/storefacts.h"
#include "tvctl/health/watchneed.h"

#include <QVector>

#include <optional>

/// Checks of what the service stands on: its files, its settings, the kernel's limits. Pure.
namespace SystemChecks
{
/// `parts` are the installation's own files and directories, `above` the directories that they lie in:
/// whoever may write to one of these may put another program in the place of the service.
Finding directories(const QVector<DirectoryFacts>& parts, const QVector<DirectoryFacts>& above);

/// `secret` are the directories that only root may look into.
Finding privacy(const QVector<DirectoryFacts>& secret);

/// Copies of what is cleaned can be put there, and nobody else gets at them.
Finding quarantine(const DirectoryFacts& quarantine, bool isRoot);

/// There is room for copies, records and lines of the log.
Finding diskSpace(const QVector<DirectoryFacts>& written);

/// How much of the service one sees.
enum class Process
{
    None,
    Hidden,
    Visible
};

/// The engine has a `directory` that it can unpack into.
Finding engineDirectory(const std::optional<DirectoryFacts>& directory, Process process);

/// The log takes lines.
Finding log(const DirectoryFacts& directory, const DirectoryFacts& file, bool isRoot);

/// The kernel lets every directory be watched. Of this and the following two `isPackage` says how limits are
/// raised.
Finding watchLimit(const InotifyLimits& limits, const WatchNeed& need, bool isPackage);

/// The kernel keeps enough events for a busy moment.
Finding eventQueue(const InotifyLimits& limits, const WatchNeed& need, bool isPackage);

/// The kernel lets the service have its queue.
Finding instanceLimit(const InotifyLimits& limits, bool isPackage);

/// The switch is on.
Finding protection(const StoreFacts& stores);

/// What is found is cleaned.
Finding scanAction(const StoreFacts& stores);

/// The stores are sound.
Finding stores(const StoreFacts& stores, const QString& directory);

/// The library that reads them is complete.
Finding sqliteDriver(bool isAvailable);
} // namespace SystemChecks
