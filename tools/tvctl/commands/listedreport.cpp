#include "tvctl/commands/listedreport.h"

#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"

#include <QJsonObject>

ListedReport::ListedReport(Output& output)
    : m_output(output),
      m_errors(output),
      m_progress(output.showsProgress(), QStringLiteral("files"))
{
}

void ListedReport::proceed(const QString& path)
{
    m_progress.update(m_files, 0, path);
}

void ListedReport::lookedUp()
{
    ++m_files;
}

void ListedReport::listed(const QString& path, const QString& hashType, const QString& hash,
                          const QString& action, const QString& text)
{
    ++m_listed;
    if (m_output.isJson()) {
        QJsonObject match;
        JsonText::insertPath(match, QStringLiteral("path"), path);
        match.insert(QStringLiteral("type"), hashType);
        match.insert(QStringLiteral("hash"), hash);
        match.insert(QStringLiteral("action"), action);
        m_matches.append(match);
        return;
    }
    m_progress.clear();
    m_output.line(
        printable(path) + QStringLiteral(": ") +
        m_output.coloured(QStringLiteral("%1 %2").arg(hashType, printable(hash)), Output::Colour::Bad) +
        QStringLiteral(" - ") + text);
}

void ListedReport::failed(const QString& path, const QString& reason)
{
    ++m_failed;
    m_progress.clear();
    m_errors.add(path, reason);
}

void ListedReport::stopped(const QString& reason)
{
    m_stopped = reason;
    m_progress.clear();
    m_output.error(QStringLiteral("%1; %2 files were looked up until then").arg(reason).arg(m_files));
}

ExitCode ListedReport::finish()
{
    m_progress.clear();
    m_output.line(
        QStringLiteral("files: %1, listed: %2, not looked up: %3").arg(m_files).arg(m_listed).arg(m_failed));
    if (m_output.isJson()) {
        m_output.document({
            {QStringLiteral("matches"), m_matches},
            {QStringLiteral("errors"), m_errors.toJson()},
            {QStringLiteral("files"), m_files},
            {QStringLiteral("listed"), m_listed},
            {QStringLiteral("failed"), m_failed},
            {QStringLiteral("stopped"),
             m_stopped.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(m_stopped)},
        });
    }
    if (!m_stopped.isEmpty()) {
        return ExitCode::Error;
    }
    if (m_listed > 0) {
        return ExitCode::Found;
    }
    return m_failed > 0 ? ExitCode::Error : ExitCode::Good;
}
