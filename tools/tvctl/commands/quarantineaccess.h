#pragma once

#include "tvctl/commands/session.h"
#include "tvctl/commandtree/command.h"
#include "tvctl/quarantine/quarantine.h"

#include <QByteArray>
#include <QString>
#include <QVector>

#include <string>
#include <vector>

#include <sys/types.h>

/// What the commands about the quarantine share.
namespace QuarantineAccess
{
/// The quarantine of the installation. One that was not made yet counts as empty. Throws ToolError when it
/// cannot be opened or there is no installation.
Quarantine open(const Session& session);

/// What lies there. Throws ToolError when it cannot be read to its end.
QuarantineListing list(const Session& session, const Quarantine& quarantine);

/// Why the copy `name` cannot be had, after `error`, and what to do.
QString problemOf(const QByteArray& name, int error);

/// Fills in where `entries` came from, by the detection records and by `candidates`, paths as they were
/// given. False when the records cannot be read, which was told then.
bool identify(Session& session, QVector<QuarantineEntry>& entries,
              const std::vector<std::string>& candidates);

/// Adds `--path`, which names candidates.
void addCandidatesOption(const Command& command, std::vector<std::string>& candidates);

/// "1 copy", "2 copies".
QString countText(int copies);

} // namespace QuarantineAccess
