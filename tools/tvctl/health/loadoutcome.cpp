#include "tvctl/health/loadoutcome.h"

#include "common/filename.h"
#include "common/uniquefd.h"

#include <QLocale>
#include <QRegularExpression>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr int timeLength = 23;
constexpr qint64 chunkSize = 64LL * 1024;
/// None of the lines that matter comes near it.
constexpr int maxLineSize = 1024 * 1024;

std::optional<LoadOutcome> outcomeOfRest(const QByteArray& rest)
{
    static const QByteArray startPrefix = "[INFO]  [LoggerStarted] :: Build Date: ";
    static const QByteArray enginePrefix = "[TRACE]  [CScanFile::";
    static const QByteArray errorPrefix = "[ERROR]  [CScanFile::";
    if (rest.startsWith(startPrefix)) {
        return LoadOutcome{LoadOutcome::Result::Starting, {}, {}, 0};
    }
    if (rest.startsWith(enginePrefix)) {
        const QByteArray what = rest.mid(enginePrefix.size());
        if (what == "loadDatabases] :: Successfully Compiled Engine.") {
            return LoadOutcome{LoadOutcome::Result::Loaded, {}, {}, 0};
        }
        if (what == "initEngine] :: Successfully Scan Engine Initialize.") {
            return LoadOutcome{LoadOutcome::Result::Loading, {}, {}, 0};
        }
    }
    if (!rest.startsWith(errorPrefix)) {
        return std::nullopt;
    }
    static const QRegularExpression pattern(
        QStringLiteral("^(?:loadDatabases|initEngine)\\] :: \\[0x[0-9A-F]{8}\\]: Failed to (?:"
                       "load database\\. Path: (?<file>.+) Error: (?<load>[0-9]{1,9})|"
                       "compile engine\\. Error: (?<compile>[0-9]{1,9})|"
                       "(?:init|create) scan engine!)$"),
        QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpressionMatch match = pattern.match(FileName::toText(rest.mid(errorPrefix.size())));
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const QString code = match.captured(QStringLiteral("load")) + match.captured(QStringLiteral("compile"));
    return LoadOutcome{LoadOutcome::Result::Failed, {}, match.captured(QStringLiteral("file")), code.toInt()};
}

/// Looks at the lines of `text` from the last one on; the part before the first line end is no whole line and
/// stays in `text`.
std::optional<LoadOutcome> takeLines(QByteArray& text)
{
    static const QByteArray lineEnd = "\r\n";
    int end = text.size();
    while (true) {
        // A line that ends at `end` begins behind the line end before it.
        const int before =
            end < 2 * lineEnd.size() ? -1 : text.lastIndexOf(lineEnd, end - 2 * lineEnd.size());
        if (before < 0) {
            text.truncate(end);
            return std::nullopt;
        }
        const int begin = before + lineEnd.size();
        if (const auto outcome = loadOutcomeOfLine(text.mid(begin, end - lineEnd.size() - begin))) {
            return outcome;
        }
        end = begin;
    }
}
} // namespace

std::optional<LoadOutcome> loadOutcomeOfLine(const QByteArray& line)
{
    if (line.size() <= timeLength + 2 || line.at(timeLength) != ' ' || line.at(timeLength + 1) != ' ') {
        return std::nullopt;
    }
    std::optional<LoadOutcome> outcome = outcomeOfRest(line.mid(timeLength + 2));
    if (!outcome) {
        return std::nullopt;
    }
    outcome->time = QLocale::c().toDateTime(QString::fromLatin1(line.left(timeLength)),
                                            QStringLiteral("yyyy-MM-dd hh:mm:ss:zzz"));
    return outcome->time.isValid() ? outcome : std::nullopt;
}

LoadOutcome readLoadOutcome(const QString& path, qint64 maxBytes)
{
    const UniqueFd log(
        ::open(FileName::toBytes(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    if (!log.isValid() || ::fstat(log.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return {};
    }
    QByteArray text;
    qint64 position = status.st_size;
    while (position > 0 && status.st_size - position < maxBytes) {
        const qint64 wanted = qMin(position, chunkSize);
        QByteArray chunk(static_cast<int>(wanted), Qt::Uninitialized);
        position -= wanted;
        if (TEMP_FAILURE_RETRY(::pread(log.get(), chunk.data(), static_cast<size_t>(wanted), position)) !=
            wanted) {
            return {};
        }
        if (text.isEmpty()) {
            // What is being written stands behind the last line end.
            chunk.truncate(chunk.lastIndexOf("\r\n") < 0 ? 0 : chunk.lastIndexOf("\r\n") + 2);
        }
        text.prepend(chunk);
        if (position == 0) {
            text.prepend("\r\n");
        }
        if (const auto outcome = takeLines(text)) {
            return *outcome;
        }
        if (text.size() > maxLineSize) {
            text.clear();
        }
    }
    return {};
}
