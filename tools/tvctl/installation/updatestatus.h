#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

/// What came of the last update of the signatures, as tvfilemon-update wrote it down; docs/signatures.md
/// describes the file.
struct UpdateStatus
{
    /// Reads `text`, the content of the file. Nothing when it is none. Names that are not known are left out:
    /// a later release may write more. Pure.
    static std::optional<UpdateStatus> parse(const QByteArray& text);

    /// The same for `file`; nothing when there is none, or it cannot be read.
    static std::optional<UpdateStatus> read(const QString& file);

    bool isGood() const
    {
        return result == QLatin1String("updated") || result == QLatin1String("current");
    }

    QDateTime tried;
    /// One of the words of the documentation; another one of a later release counts as not good.
    QString result;
    /// When the last good one ended; invalid when there was none.
    QDateTime succeeded;
    /// For people.
    QString message;
};
