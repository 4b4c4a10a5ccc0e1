#pragma once

#include "tvctl/commands/patherrors.h"
#include "tvctl/console/exitcode.h"
#include "tvctl/console/output.h"
#include "tvctl/console/progress.h"

#include <QJsonArray>
#include <QString>

/// What looking many files up in the lists of hashes finds and could not do: told at once in text, in the end
/// as one document. Problems go to standard error, one line each.
class ListedReport
{
public:
    explicit ListedReport(Output& output);

    /// `path` is what is looked up now.
    void proceed(const QString& path);

    /// One more file was looked up.
    void lookedUp();
    /// It is listed. `action` is what was done to it, a word for the document; `text` says it to people.
    void listed(const QString& path, const QString& hashType, const QString& hash, const QString& action,
                const QString& text);
    /// It could not be looked up, or what had to be done to it failed.
    void failed(const QString& path, const QString& reason);
    /// Everything ends here, because of `reason`.
    void stopped(const QString& reason);

    /// Prints the summary or the document, and tells how the command ends.
    ExitCode finish();

private:
    Output& m_output;
    PathErrors m_errors;
    Progress m_progress;
    qint64 m_files = 0;
    qint64 m_listed = 0;
    qint64 m_failed = 0;
    QString m_stopped;
    /// For a document only.
    QJsonArray m_matches;
};
