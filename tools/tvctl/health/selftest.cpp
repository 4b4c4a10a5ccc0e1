#include "tvctl/health/selftest.h"

#include "common/filename.h"
#include "platform/tvcore/virusconfig.h"
#include "tvctl/client/servicereply.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/health/advice.h"
#include "tvctl/health/inotifyuse.h"
#include "tvctl/health/serviceprocess.h"
#include "tvctl/health/testfile.h"
#include "tvctl/health/testpattern.h"
#include "tvctl/health/watchneed.h"
#include "tvctl/installation/localadvice.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>

#include <cstdlib>
#include <limits>
#include <memory>

#include <poll.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using State = ServiceConnection::State;
using Outcome = SelfTestResult::Outcome;

namespace
{
constexpr milliseconds rewriteAfter(200);
constexpr milliseconds searchAfter(50);
constexpr milliseconds lookAfter(5);
constexpr milliseconds answerLimit(3000);
/// From the removal of the file to its record: the store may be held by somebody else meanwhile.
constexpr milliseconds recordLimit(3000);

bool isDirectory(const QString& path)
{
    struct stat status = {};
    return ::stat(FileName::toBytes(path).constData(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isWritable(const QString& directory)
{
    return isDirectory(directory) && ::access(FileName::toBytes(directory).constData(), W_OK | X_OK) == 0;
}

/// Without links; empty when there is nothing. Qt's own would lose bytes that are no UTF-8.
QString realPathOf(const QString& path)
{
    const std::unique_ptr<char, decltype(&::free)> real(
        ::realpath(FileName::toBytes(path).constData(), nullptr), &::free);
    return real == nullptr ? QString() : FileName::toText(QByteArray(real.get()));
}

/// The number of the newest record. Not the time of day, which may be set while the test runs.
qint64 lastRecordOf(const StoreFacts& stores)
{
    QVector<VirusReport> last;
    if (stores.hasReports()) {
        constexpr qint64 end = std::numeric_limits<qint64>::max();
        VirusConfig().getLastVirusReports(QDateTime(), QDateTime(), last, end, 1);
    }
    return last.isEmpty() ? 0 : last.constFirst().getId();
}
} // namespace

QString SelfTest::usualDirectory()
{
    if (::geteuid() != 0) {
        const struct passwd* user = ::getpwuid(::geteuid());
        return watchedDirectory(user == nullptr ? QString() : FileName::toText(user->pw_dir));
    }
    for (const QString& root : WatchNeed::watchedRoots()) {
        if (isWritable(root)) {
            return root;
        }
    }
    throw ToolError(QStringLiteral("there is no watched directory that can be written to (%1)")
                        .arg(WatchNeed::watchedRoots().join(QStringLiteral(", "))));
}

QString SelfTest::watchedDirectory(const QString& directory)
{
    const QString real = realPathOf(directory);
    if (real.isEmpty() || !isDirectory(real)) {
        throw ToolError(QStringLiteral("%1 is no directory; name another with --directory").arg(directory));
    }
    for (const QString& root : WatchNeed::watchedRoots()) {
        const QString realRoot = realPathOf(root);
        if (!realRoot.isEmpty() && (real == realRoot || real.startsWith(realRoot + QLatin1Char('/')))) {
            return root + real.mid(realRoot.size());
        }
    }
    throw ToolError(QStringLiteral("%1 is not watched: name a directory below %2 with --directory")
                        .arg(directory, WatchNeed::watchedRoots().join(QStringLiteral(" or "))));
}

SelfTest::SelfTest(const Installation& installation, const QString& directory, milliseconds limit)
    : m_installation(installation),
      m_directory(directory),
      m_limit(limit),
      m_stores(StoreFacts::read(installation)),
      m_lastRecord(lastRecordOf(m_stores))
{
}

SelfTestResult SelfTest::run()
{
    SelfTestResult result;
    result.recordProblem = m_stores.reportsProblem;
    connect();
    if (m_stores.hasSettings() && !m_stores.isRealtimeOn) {
        result.explanation = QStringLiteral("real-time protection is switched off");
        result.fix = QStringLiteral("tvctl config set protection.realtime on");
        return result;
    }
    {
        TestFile file(m_directory);
        if (file.error() != 0) {
            throw ToolError(QStringLiteral("cannot write into %1: %2; name another with --directory")
                                .arg(m_directory, qt_error_string(file.error())));
        }
        result.path = m_directory + QLatin1Char('/') + file.name();
        if (!watch(file, result)) {
            explain(result);
        }
    }
    removeCopies(result.path);
    return result;
}

void SelfTest::connect()
{
    if (m_service.open(answerLimit)) {
        return;
    }
    if (m_service.state() == State::Refused) {
        throw ToolError(m_service.problem() + QStringLiteral("; ") +
                        LocalAdvice(m_installation).wordedFor(QStringLiteral("systemctl start tvfilemon")));
    }
    // One that is busy may yet do its work, and whom the firewall does not let ask may still see that.
    if (m_service.state() != State::TimedOut && m_service.state() != State::Barred) {
        throw ToolError(m_service.problem() + QStringLiteral("; see what is wrong: tvctl doctor"));
    }
}

bool SelfTest::watch(TestFile& file, SelfTestResult& result)
{
    const Clock::time_point began = Clock::now();
    Clock::time_point written = began;
    Clock::time_point searched = began;
    result.tries = 1;
    while (true) {
        const Clock::time_point now = Clock::now();
        result.milliseconds = duration_cast<milliseconds>(now - began).count();
        if (file.isGone()) {
            result.outcome = Outcome::Removed;
            awaitRecord(file.name(), result);
            return true;
        }
        if (m_interruption.isRequested()) {
            result.outcome = Outcome::Unknown;
            result.explanation = QStringLiteral("interrupted before anything happened");
            return true;
        }
        if (now - began > m_limit) {
            return false;
        }
        if (now - searched >= searchAfter) {
            searched = now;
            result.record = findRecord(file.name());
            // The record of a file that is removed comes last.
            if (result.record && !file.isGone()) {
                result.outcome = Outcome::Reported;
                return true;
            }
        }
        if (now - written >= rewriteAfter) {
            file.rewrite();
            ++result.tries;
            written = now;
        }
        struct pollfd signal = {m_interruption.descriptor(), POLLIN, 0};
        ::poll(&signal, 1, static_cast<int>(lookAfter.count()));
    }
}

std::optional<VirusReport> SelfTest::findRecord(const QString& name) const
{
    if (!m_stores.hasReports()) {
        return std::nullopt;
    }
    QVector<VirusReport> reports;
    qint64 last = m_lastRecord;
    while (VirusConfig().getVirusReports(QDateTime(), QDateTime(), reports, last) && !reports.isEmpty()) {
        for (const VirusReport& report : qAsConst(reports)) {
            // Nobody else could have known this name.
            if (report.getFileName() == name) {
                return report;
            }
        }
        last = reports.last().getId();
    }
    return std::nullopt;
}

void SelfTest::awaitRecord(const QString& name, SelfTestResult& result) const
{
    if (!m_stores.hasReports()) {
        return;
    }
    const Clock::time_point deadline = Clock::now() + recordLimit;
    while (!(result.record = findRecord(name)) && Clock::now() < deadline && !m_interruption.isRequested()) {
        struct pollfd signal = {m_interruption.descriptor(), POLLIN, 0};
        ::poll(&signal, 1, static_cast<int>(lookAfter.count()));
    }
    if (!result.record) {
        // Some other program may have been faster.
        result.outcome = Outcome::Unknown;
        result.explanation =
            QStringLiteral("the file was removed, but there is no record of it: somebody else "
                           "removed it, or tvfilemon cannot store what it finds");
        result.fix = QStringLiteral("see what is wrong: tvctl doctor");
    }
}

void SelfTest::explain(SelfTestResult& result)
{
    result.fix = QStringLiteral("see what is wrong: tvctl doctor");
    if (m_service.state() == State::Barred) {
        result.outcome = Outcome::Unknown;
        result.explanation = QStringLiteral("nothing happened to the file, and why, only root may ask");
        result.fix = QStringLiteral("sudo tvctl selftest");
        return;
    }
    if (m_service.state() != State::Open && !m_service.open(answerLimit)) {
        result.explanation = m_service.problem();
        return;
    }
    const Request request = makeRequest(QByteArrayLiteral("SCAN"), result.path);
    using Result = ServiceReply::Scan::Result;
    Result fileResult = Result::Unknown;
    if (request.isValid()) {
        const auto reply = m_service.ask(request, answerLimit);
        if (!reply) {
            result.explanation = m_service.problem();
            return;
        }
        fileResult = ServiceReply::scan(*reply).result;
    }
    const auto reply = m_service.ask(
        makeRequest(QByteArrayLiteral("SCANURL"), QString::fromLatin1(testPattern())), answerLimit);
    const Result textResult = reply ? ServiceReply::scan(*reply).result : Result::Unknown;
    if (fileResult == Result::Infected || (!request.isValid() && textResult == Result::Infected)) {
        explainBlindness(result);
    } else if (textResult == Result::Infected) {
        result.explanation =
            QStringLiteral("tvfilemon recognises the pattern, but does not find it in the file: "
                           "it cannot read it, or it is excluded");
        result.fix = QStringLiteral("look at tvctl exclude list, and at tvctl doctor");
    } else {
        result.explanation =
            QStringLiteral("tvfilemon answers, but its engine finds nothing: its signatures are not loaded");
    }
}

void SelfTest::explainBlindness(SelfTestResult& result) const
{
    if (!m_stores.hasSettings()) {
        result.outcome = Outcome::Unknown;
        result.explanation =
            QStringLiteral("nothing happened to the file; whether real-time protection is off "
                           "or only reports, only root may see");
        result.fix = QStringLiteral("sudo tvctl selftest");
        return;
    }
    if (m_stores.scanAction == 0 && !m_stores.hasReports()) {
        result.outcome = Outcome::Unknown;
        result.explanation =
            QStringLiteral("nothing happened to the file, since tvfilemon only reports it, and "
                           "whether it did cannot be told: ") +
            m_stores.reportsProblem;
        return;
    }
    result.explanation =
        QStringLiteral("tvfilemon answers and recognises the file, but it no longer sees what is written");
    result.fix = LocalAdvice(m_installation).wordedFor(Advice::restart());
    const QVector<RunningProcess> processes = ServiceProcess::find(m_installation);
    const auto use = processes.isEmpty() ? std::nullopt : inotifyUseOf(processes.first().id);
    struct stat status = {};
    if (use && ::stat(FileName::toBytes(m_directory).constData(), &status) == 0 &&
        !use->watched.contains(status.st_dev, status.st_ino)) {
        result.explanation =
            QStringLiteral("tvfilemon answers and recognises the file, but it does not watch %1")
                .arg(m_directory);
        result.fix =
            QStringLiteral("when it lies at most four levels below a watched root and is not hidden: ") +
            LocalAdvice(m_installation).wordedFor(Advice::restart());
    }
}

void SelfTest::removeCopies(const QString& path) const
{
    if (::geteuid() != 0) {
        return;
    }
    const QByteArray digest = QCryptographicHash::hash(FileName::toBytes(path), QCryptographicHash::Md5);
    QDir quarantine(m_installation.quarantine());
    const QString pattern = QStringLiteral("*_%1.tvq").arg(QString::fromLatin1(digest.toHex()));
    for (const QString& copy : quarantine.entryList({pattern}, QDir::Files)) {
        quarantine.remove(copy);
    }
}
