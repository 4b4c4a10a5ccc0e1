#include "tvctl/scanner/filecleaner.h"

#include "common/filename.h"
#include "common/heldfile.h"
#include "common/originalstate.h"
#include "platform/tvcore/scanconfig.h"
#include "tvctl/client/servicereply.h"
#include "tvctl/scanner/handover.h"
#include "tvctl/scanner/pathtrust.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QLocale>
#include <QRandomGenerator>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/statvfs.h>

namespace
{
constexpr int reportOnly = 0;

QByteArray cleanCommand()
{
    return QByteArrayLiteral("CLEAN");
}

using Result = FileCleaner::Result;

Result notRemoved(const QString& reason)
{
    return {Result::Kind::NotRemoved, QStringLiteral("not removed: ") + reason};
}

/// What has the name of the file now.
enum class Present
{
    TheFile,
    Nothing,
    AnotherFile
};

Present presentAt(int directory, const QByteArray& name, const struct stat& file)
{
    struct stat now = {};
    if (::fstatat(directory, name.constData(), &now, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? Present::Nothing : Present::AnotherFile;
    }
    return now.st_dev == file.st_dev && now.st_ino == file.st_ino ? Present::TheFile : Present::AnotherFile;
}

bool haveSameContent(int one, int other)
{
    // Of a hole of any size somebody else decides; what is larger is not worth the time.
    constexpr off_t most = off_t(1) << 30;
    std::array<char, 65536> left;
    std::array<char, 65536> right;
    for (off_t at = 0; at < most;) {
        const ssize_t got = ::pread(one, left.data(), left.size(), at);
        if (got < 0 || ::pread(other, right.data(), right.size(), at) != got ||
            std::memcmp(left.data(), right.data(), static_cast<size_t>(got)) != 0) {
            return false;
        }
        if (got == 0) {
            return true;
        }
        at += got;
    }
    return false;
}

/// Notes with `copy` what the open `original` was. The service notes nothing of what a link led to, and the
/// kernel's link to the directory is one. Only with the same content: in the last moment somebody may have
/// put a link to another user's file there, whose copy must not be given back as his.
void keepState(int original, const QByteArray& copy)
{
    const UniqueFd file(::open(copy.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    if (file.isValid() && !OriginalState::attachedTo(file.get()) && ::fstat(original, &status) == 0 &&
        haveSameContent(original, file.get())) {
        OriginalState::of(status).attachTo(file.get());
    }
}

bool isReadOnly(int directory)
{
    struct statvfs about = {};
    return ::fstatvfs(directory, &about) == 0 && (about.f_flag & ST_RDONLY) != 0;
}

/// A name that nobody else gives. The monitor leaves such files alone, and a scan does not: one that was left
/// behind is found again.
QByteArray passingName()
{
    return ".tvctl-" + QByteArray::number(QRandomGenerator::system()->generate64(), 16) + ".part";
}

/// What follows the time in the name of a copy of the file that was at `path`.
QString nameEndFor(const QByteArray& path)
{
    const QByteArray digest = QCryptographicHash::hash(path, QCryptographicHash::Md5).toHex();
    return QLatin1Char('_') + QString::fromLatin1(digest) + QStringLiteral(".tvq");
}

/// Renames the copy, which the service called `made`, for the file that was at `path`; its name, empty with
/// errno set on failure.
///
/// A file that was at this path in the same second has a copy of that name. Earlier ones are looked at then:
/// the service makes no copy, and still removes the file, when the name for its own time is taken.
QByteArray giveNameFor(const QByteArray& path, const HeldFile& copy, const QString& made)
{
    constexpr int mostSeconds = 600;
    const QString format = QStringLiteral("yyyy-MM-dd_hh-mm-ss");
    const QDateTime time = QLocale::c().toDateTime(made.left(format.size()), format);
    for (int seconds = 0; seconds < mostSeconds; ++seconds) {
        const QString name = QLocale::c().toString(time.addSecs(-seconds), format) + nameEndFor(path);
        if (copy.rename(name.toLatin1())) {
            return name.toLatin1();
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return {};
}
} // namespace

FileCleaner::FileCleaner(ServiceConnection& connection, const Installation& installation,
                         std::optional<bool> isReportOnly)
    : m_connection(connection),
      m_installation(installation),
      m_isReportOnly(isReportOnly)
{
}

FileCleaner::Result FileCleaner::clean(const TreeWalker& walker, const std::optional<struct stat>& scanned)
{
    if (m_isReportOnly.value_or(false)) {
        return {Result::Kind::ReportOnly, QStringLiteral("not removed: the settings only allow reports")};
    }
    if (isReadOnly(walker.directory())) {
        // Each time the service would make a copy first.
        return notRemoved(QStringLiteral("it lies on a read-only file system"));
    }
    const HandOver directory(walker.directory());
    Task task = {scanned ? directory.path() + '/' + walker.name() : walker.path(), walker.name(),
                 scanned.value_or(walker.status()), walker.openFile()};
    const Request request = makeRequest(cleanCommand(), FileName::toText(task.told));
    if (!request.isValid()) {
        return scanned ? cleanRenamed(task, directory.path(), walker) : notRemoved(request.problem);
    }
    const QString distrust = scanned ? QString() : distrustOf(task.told);
    return distrust.isEmpty() ? cleanAs(task, request, walker) : notRemoved(distrust);
}

/// Cleans a file whose name cannot be told, by another name that it is given meanwhile.
FileCleaner::Result FileCleaner::cleanRenamed(Task& task, const QByteArray& directory,
                                              const TreeWalker& walker)
{
    const QByteArray former = task.name;
    task.name = passingName();
    task.told = directory + '/' + task.name;
    if (!HeldFile(directory + '/' + former).rename(task.name)) {
        const int error = errno;
        return notRemoved(QStringLiteral("the service's protocol cannot carry its name, and it cannot be "
                                         "renamed: %1")
                              .arg(qt_error_string(error)));
    }
    Result result = cleanAs(task, makeRequest(cleanCommand(), FileName::toText(task.told)), walker);
    struct stat left = {};
    if (::fstatat(walker.directory(), task.name.constData(), &left, AT_SYMLINK_NOFOLLOW) == 0 &&
        !HeldFile(task.told).rename(former)) {
        const int error = errno;
        result.text += QStringLiteral("; it is called %1 now: %2")
                           .arg(FileName::toText(task.name), qt_error_string(error));
    }
    return result;
}

FileCleaner::Result FileCleaner::cleanAs(const Task& task, const Request& request, const TreeWalker& walker)
{
    const Present there = presentAt(walker.directory(), task.name, task.file);
    if (there != Present::TheFile) {
        return notRemoved(there == Present::Nothing ? QStringLiteral("it is not there any more")
                                                    : QStringLiteral("another file has its name by now"));
    }
    const auto before = copiesOf(task.told);
    const auto reply = m_connection.ask(request);
    if (!reply) {
        return {Result::Kind::NoService, QStringLiteral("nobody knows whether it was removed")};
    }
    const bool isRemoved = ServiceReply::clean(*reply) == ServiceReply::Clean::Removed;
    const Present now = presentAt(walker.directory(), task.name, task.file);
    if (!isRemoved && now == Present::TheFile && task.told != walker.path()) {
        // The copy is of no use, and the next attempt makes one more.
        removeCopy(task.told, before);
        return notRemoved(explainNotRemoved());
    }
    // Also when it was not removed: of what could not be removed there may be a copy.
    const QString copy = tellCopy(task.told, walker.path(), task.original.get(), before);
    if (!isRemoved) {
        return notRemoved(explainNotRemoved());
    }
    switch (now) {
    case Present::Nothing:
        return {Result::Kind::Removed, QStringLiteral("removed") + copy};
    case Present::TheFile:
        return notRemoved(QStringLiteral("tvfilemon says that it was, but it is there"));
    default:
        return notRemoved(QStringLiteral("another file has its name by now") + copy);
    }
}

QString FileCleaner::explainNotRemoved() const
{
    return m_isReportOnly ? QStringLiteral("tvfilemon could not do it; its log tells why: %1")
                                .arg(m_installation.logFile())
                          : QStringLiteral("the settings only allow reports, or tvfilemon could not do it");
}

/// The names of the copies of files at this path; nothing when that cannot be seen.
std::optional<QStringList> FileCleaner::copiesOf(const QByteArray& path) const
{
    const QDir quarantine(m_installation.quarantine());
    struct stat status = {};
    if (::stat(FileName::toBytes(quarantine.path()).constData(), &status) != 0) {
        // It is made with the first copy.
        return errno == ENOENT ? std::make_optional(QStringList()) : std::nullopt;
    }
    if (S_ISDIR(status.st_mode) && !quarantine.isReadable()) {
        return std::nullopt;
    }
    return quarantine.entryList({QLatin1Char('*') + nameEndFor(path)}, QDir::Files);
}

/// The copy at this path that was not among those `before`; empty when there is none, nothing when that
/// cannot be seen.
std::optional<QString> FileCleaner::newCopyOf(const QByteArray& path,
                                              const std::optional<QStringList>& before) const
{
    const auto after = copiesOf(path);
    if (!before || !after) {
        return std::nullopt;
    }
    const auto made = std::find_if(after->crbegin(), after->crend(),
                                   [&before](const QString& name) { return !before->contains(name); });
    return made == after->crend() ? QString() : *made;
}

/// Removes the copy that the service made of the file which it was told as `told`. Nobody else is told that
/// name, so it is nobody else's copy.
void FileCleaner::removeCopy(const QByteArray& told, const std::optional<QStringList>& before) const
{
    const QString made = newCopyOf(told, before).value_or(QString());
    if (!made.isEmpty()) {
        HeldFile(FileName::toBytes(m_installation.quarantine()) + '/' + made.toLatin1()).remove();
    }
}

/// What became of the copy of the file at `path`, which the service was told as `told`, and gives the copy
/// the name for `path`. `before` are the copies of `told` that were there before.
QString FileCleaner::tellCopy(const QByteArray& told, const QByteArray& path, int original,
                              const std::optional<QStringList>& before) const
{
    const std::optional<QString> found = newCopyOf(told, before);
    if (!found) {
        return told == path
                   ? QString()
                   : QStringLiteral("; its copy cannot be seen from here, and its name does not tell "
                                    "where it comes from");
    }
    const QString& made = *found;
    if (made.isEmpty()) {
        return QStringLiteral("; there is no copy of it in the quarantine");
    }
    if (told != path) {
        const QByteArray directory = FileName::toBytes(m_installation.quarantine());
        const QByteArray name = giveNameFor(path, HeldFile(directory + '/' + made.toLatin1()), made);
        if (name.isEmpty()) {
            const int error = errno;
            return QStringLiteral("; its copy is in the quarantine as %1, which does not tell where it comes "
                                  "from: %2")
                .arg(made, qt_error_string(error));
        }
        keepState(original, directory + '/' + name);
        ::fsync(UniqueFd(::open(directory.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)).get());
    }
    return QStringLiteral("; its copy is in the quarantine");
}

bool FileCleaner::isReportOnlyStored()
{
    return ScanConfig().getScanSetting().getScanActionSetting() == reportOnly;
}

QString FileCleaner::nameOf(Result::Kind kind)
{
    switch (kind) {
    case Result::Kind::Removed:
        return QStringLiteral("removed");
    case Result::Kind::ReportOnly:
        return QStringLiteral("report only");
    case Result::Kind::NoService:
        return QStringLiteral("unknown");
    default:
        return QStringLiteral("not removed");
    }
}
