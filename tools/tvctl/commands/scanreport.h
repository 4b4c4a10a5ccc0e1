#pragma once

#include "tvctl/commands/patherrors.h"
#include "tvctl/console/exitcode.h"
#include "tvctl/console/output.h"
#include "tvctl/console/progress.h"
#include "tvctl/scanner/filecleaner.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <optional>

/// What the scan of many files finds and could not do: told at once in text, in the end as one document.
///
/// Where there is a terminal, a line shows how far it is. Problems go to standard error, one line each.
class ScanReport
{
public:
    explicit ScanReport(Output& output);

    /// `path` is what is looked at now; `total` 0 when nobody knows how many there are.
    void proceed(const QByteArray& path, qint64 total);

    /// One more file was looked at, which not all are scanned of; to be called for all or none.
    void lookedAt();
    /// One more file was scanned.
    void scanned();
    /// With `cleaned` when it was to be removed.
    void detected(const QString& path, const QString& virusName,
                  const std::optional<FileCleaner::Result>& cleaned);
    /// The file is there and was not scanned.
    void failed(const QString& path, const QString& reason);
    /// The directory, or an entry of it, cannot be read.
    void unreadable(const QString& path, const QString& reason);
    /// A directory that is excluded.
    void skipped();
    /// Something that is neither a file nor a directory.
    void passedOver();
    /// Something else went wrong that makes the command fail.
    void problem(const QString& text);
    /// The scan ends here, because of `reason`.
    void stopped(const QString& reason);

    /// For what else is to be said meanwhile.
    void note(const QString& text);

    /// Prints the summary, or the document with the fields of `more` besides, and tells how the command ends.
    ExitCode finish(const QJsonObject& more = {});

private:
    void addError(const QString& path, const QString& reason);
    QStringList summary(double seconds) const;
    ExitCode exitCode() const;

    Output& m_output;
    PathErrors m_errors;
    Progress m_progress;
    QElapsedTimer m_elapsed;
    std::optional<qint64> m_lookedAt;
    qint64 m_scanned = 0;
    qint64 m_infected = 0;
    qint64 m_removed = 0;
    qint64 m_failed = 0;
    qint64 m_unreadable = 0;
    qint64 m_skipped = 0;
    qint64 m_passedOver = 0;
    bool m_hasProblem = false;
    QString m_stopped;
    /// For a document only.
    QJsonArray m_detections;
};
