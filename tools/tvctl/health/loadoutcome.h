#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

/// What the service's log tells about its signatures.
///
/// Only a hint: names of files stand in the log as they are, and one that holds a line end and a whole line
/// of the log passes for that line. Whether the engine detects anything is for the engine to tell; the log
/// tells why not.
struct LoadOutcome
{
    enum class Result
    {
        /// The log has nothing about it, or cannot be read.
        Unknown,
        /// The service has started and not got as far yet.
        Starting,
        Loading,
        Loaded,
        Failed
    };

    Result result = Result::Unknown;
    /// When the log says so; invalid for Unknown.
    QDateTime time;
    /// What could not be loaded, and libclamav's number for why; for Failed alone, and not always.
    QString file;
    int errorCode = 0;
};

/// What `line`, a whole line of the log without its end, tells; nothing for lines about other things. Pure.
std::optional<LoadOutcome> loadOutcomeOfLine(const QByteArray& line);

/// The last that the log `path` tells. Reads from its end and gives up after `maxBytes`: a log may have any
/// size.
LoadOutcome readLoadOutcome(const QString& path, qint64 maxBytes = 64LL * 1024 * 1024);
