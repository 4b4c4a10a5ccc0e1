#pragma once

#include "common/originalstate.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QtGlobal>

#include <optional>

/// One copy in the quarantine, a plain value.
struct QuarantineEntry
{
    /// Of the copy, without a directory.
    QByteArray name;
    /// When the copy was made, as its name tells; of the two moments that it may mean in the hour that clocks
    /// show twice, the one that a record confirms, otherwise the earlier.
    QDateTime time;
    /// The MD5 of the original's path, 32 hexadecimal digits in lower case.
    QByteArray pathDigest;
    qint64 size = 0;
    /// Missing when the copy has no such attribute or may not be read by this user.
    std::optional<OriginalState> original;

    // What QuarantineOrigins finds out.

    /// Empty when it is not known.
    QByteArray originalPath;
    /// Of the record of this very detection, and its number; empty and 0 when there is none.
    QString virusName;
    qint64 recordId = 0;
};
