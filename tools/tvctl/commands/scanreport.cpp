#include "tvctl/commands/scanreport.h"

#include "common/filename.h"
#include "tvctl/commands/shortpath.h"
#include "tvctl/console/columns.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"

#include <QLocale>

namespace
{
QString number(qint64 count)
{
    return QLocale::c().toString(count);
}

/// A rate says nothing about what was over at once, nor about a few files.
QString timeText(double seconds, qint64 files)
{
    constexpr double msecsPerSecond = 1000;
    const double rate = static_cast<double>(files) / seconds;
    if (seconds < 1) {
        return QStringLiteral("%1 ms").arg(static_cast<int>(seconds * msecsPerSecond));
    }
    const QString time = QStringLiteral("%1 s").arg(seconds, 0, 'f', 1);
    return rate < 1 ? time : QStringLiteral("%1, %2 files/s").arg(time, number(static_cast<qint64>(rate)));
}
} // namespace

ScanReport::ScanReport(Output& output)
    : m_output(output),
      m_errors(output),
      m_progress(output.showsProgress(), QStringLiteral("files"), output.hasProgressColours())
{
    m_elapsed.start();
}

void ScanReport::proceed(const QByteArray& path, qint64 total)
{
    if (m_progress.isDue()) {
        m_progress.update(m_lookedAt.value_or(m_scanned), total, FileName::toText(shortPath(path)));
    }
}

void ScanReport::lookedAt()
{
    m_lookedAt = m_lookedAt.value_or(0) + 1;
}

void ScanReport::scanned()
{
    ++m_scanned;
}

void ScanReport::detected(const QString& path, const QString& virusName,
                          const std::optional<FileCleaner::Result>& cleaned)
{
    ++m_infected;
    m_removed += cleaned && cleaned->kind == FileCleaner::Result::Kind::Removed ? 1 : 0;
    if (m_output.isJson()) {
        QJsonObject detection;
        JsonText::insertPath(detection, QStringLiteral("path"), path);
        detection.insert(QStringLiteral("virus"), virusName);
        detection.insert(QStringLiteral("action"),
                         cleaned ? FileCleaner::nameOf(cleaned->kind) : QStringLiteral("none"));
        if (cleaned) {
            detection.insert(QStringLiteral("detail"), cleaned->text);
        }
        m_detections.append(detection);
        return;
    }
    m_progress.clear();
    const QString done = cleaned ? QStringLiteral(" - ") + printable(cleaned->text) : QString();
    m_output.line(printable(path) + QStringLiteral(": ") +
                  m_output.coloured(printable(virusName), Output::Colour::Bad) + done);
}

void ScanReport::failed(const QString& path, const QString& reason)
{
    ++m_failed;
    addError(path, reason);
}

void ScanReport::unreadable(const QString& path, const QString& reason)
{
    ++m_unreadable;
    addError(path, reason);
}

void ScanReport::skipped()
{
    ++m_skipped;
}

void ScanReport::passedOver()
{
    ++m_passedOver;
}

void ScanReport::problem(const QString& text)
{
    m_hasProblem = true;
    m_progress.clear();
    m_output.error(text);
}

void ScanReport::stopped(const QString& reason)
{
    m_stopped = reason;
    problem(QStringLiteral("%1; %2 files were scanned until then").arg(reason, number(m_scanned)));
}

void ScanReport::note(const QString& text)
{
    m_progress.clear();
    m_output.note(text);
}

ExitCode ScanReport::finish(const QJsonObject& more)
{
    m_progress.clear();
    constexpr double msecsPerSecond = 1000;
    const double seconds = static_cast<double>(m_elapsed.elapsed()) / msecsPerSecond;
    if (!m_output.isJson()) {
        m_output.lines(summary(seconds));
        return exitCode();
    }
    QJsonObject document = more;
    document.insert(QStringLiteral("detections"), m_detections);
    document.insert(QStringLiteral("errors"), m_errors.toJson());
    if (m_lookedAt) {
        document.insert(QStringLiteral("looked_at"), *m_lookedAt);
    }
    document.insert(QStringLiteral("files"), m_scanned);
    document.insert(QStringLiteral("infected"), m_infected);
    document.insert(QStringLiteral("removed"), m_removed);
    document.insert(QStringLiteral("failed"), m_failed);
    document.insert(QStringLiteral("unreadable"), m_unreadable);
    document.insert(QStringLiteral("skipped"), m_skipped);
    document.insert(QStringLiteral("passed_over"), m_passedOver);
    document.insert(QStringLiteral("seconds"), seconds);
    document.insert(QStringLiteral("stopped"),
                    m_stopped.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(m_stopped));
    m_output.document(document);
    return exitCode();
}

void ScanReport::addError(const QString& path, const QString& reason)
{
    m_progress.clear();
    m_errors.add(path, reason);
}

QStringList ScanReport::summary(double seconds) const
{
    QVector<QStringList> rows = {
        {QStringLiteral("files scanned:"), number(m_scanned)},
        {QStringLiteral("infected:"), number(m_infected)},
        {QStringLiteral("removed:"), number(m_removed)},
        {QStringLiteral("not scanned:"), number(m_failed)},
        {QStringLiteral("unreadable:"), number(m_unreadable)},
        {QStringLiteral("skipped:"), QStringLiteral("%1 excluded folders, %2 links and devices")
                                         .arg(number(m_skipped), number(m_passedOver))},
        {QStringLiteral("time:"), timeText(seconds, m_scanned)},
    };
    if (m_lookedAt) {
        rows.prepend({QStringLiteral("files looked at:"), number(*m_lookedAt)});
    }
    return QStringList{QString()} + alignColumns(rows);
}

ExitCode ScanReport::exitCode() const
{
    if (!m_stopped.isEmpty()) {
        return ExitCode::Error;
    }
    if (m_infected > 0) {
        return ExitCode::Found;
    }
    return m_hasProblem || m_failed > 0 || m_unreadable > 0 ? ExitCode::Error : ExitCode::Good;
}
