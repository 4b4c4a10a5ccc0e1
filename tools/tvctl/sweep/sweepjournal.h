#pragma once

#include "tvctl/sweep/sweeptime.h"

#include <QByteArray>

#include <optional>

/// What a sweep that is not finished has done, in a file that is only ever appended to: whatever ends the
/// sweep, at most the last step is lost or cut off.
namespace SweepJournal
{
struct Begin
{
    SweepTime begun;
    /// It scans everything, because somebody wanted that or nothing was known.
    bool isFull = false;
};

struct Step
{
    /// The path at which the sweep is, or above it, and of which root.
    qint32 root = 0;
    QByteArray path;
    /// It is done, too.
    bool isDone = false;
    /// What has come to SweepState's `directories` and `again` since the step before, packed.
    QByteArray directories;
    QByteArray again;
};

/// The beginning of the file, and what is appended to it.
QByteArray encode(const Begin& begin);
QByteArray encode(const Step& step);

/// A whole journal. The steps are one: their sum, at the place of the last.
struct Content
{
    Begin begin;
    Step done;
    /// How much of the file this is; what is behind it was cut off.
    int size = 0;
};
/// Nothing when not even the beginning can be read.
std::optional<Content> decode(const QByteArray& bytes);
} // namespace SweepJournal
