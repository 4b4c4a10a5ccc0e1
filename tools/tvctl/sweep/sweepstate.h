#pragma once

#include "tvctl/sweep/places.h"
#include "tvctl/sweep/sweeptime.h"

#include <QByteArray>

#include <optional>

/// What a finished sweep leaves for the next one.
struct SweepState
{
    /// When it began: what changed later is not known to it.
    SweepTime begun;
    /// The directories whose content it has seen.
    Places directories;
    /// Paths that are due again in any case: a file that could not be scanned, a directory not read to its
    /// end.
    Places again;
};

/// The content of a state file: a line that tells what it is, the fields, and a digest of all in front of it.
QByteArray encode(const SweepState& state);
/// Nothing when `bytes` are not all of what `encode` makes.
std::optional<SweepState> decodeState(const QByteArray& bytes);
