#include "tvctl/quarantine/quarantinerestore.h"

#include "common/filecopy.h"
#include "common/opendirectory.h"
#include "common/originalstate.h"
#include "common/pendingfile.h"
#include "common/sameinode.h"
#include "common/uniquefd.h"
#include "tvctl/quarantine/quarantine.h"

#include <QDateTime>
#include <QList>
#include <QLocale>
#include <QRandomGenerator>
#include <QThread>

#include <cerrno>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace
{
constexpr mode_t passingMode = S_IRUSR | S_IWUSR;
constexpr mode_t givenBackBits = S_IRWXU | S_IRWXG | S_IRWXO;
/// That a file is found again, after it appeared and before its old copy is removed.
constexpr int secondsUntilFound = 2;
constexpr unsigned long pauseMs = 20;

struct Target
{
    QByteArray directory;
    QByteArray name;
};

std::optional<Target> targetOf(const QByteArray& path)
{
    const QList<QByteArray> components = path.split('/');
    const QByteArray& name = components.constLast();
    // What ".." leads to can be changed by whoever may move the directory it stands in.
    if (!path.startsWith('/') || path.contains('\0') || components.contains("..") || name.isEmpty() ||
        name == ".") {
        return std::nullopt;
    }
    Target target = {QByteArray(), name};
    for (int i = 1; i < components.size() - 1; ++i) {
        if (!components.at(i).isEmpty() && components.at(i) != ".") {
            target.directory += '/' + components.at(i);
        }
    }
    if (target.directory.isEmpty()) {
        target.directory = "/";
    }
    return target;
}

/// One that nobody can have taken beforehand.
QByteArray passingName()
{
    return ".tvctl-" + QByteArray::number(QRandomGenerator::system()->generate64(), 16) + ".part";
}

RestoreResult failure(RestoreOutcome outcome, int error)
{
    RestoreResult result;
    result.outcome = outcome;
    result.error = error;
    return result;
}

void giveState(int file, const std::optional<OriginalState>& original, uid_t directoryOwner,
               RestoreResult& result)
{
    // Whom the directory lets in by default, its owner chose; and the permissions would let them in.
    ::fremovexattr(file, "system.posix_acl_access");
    if (!original) {
        return;
    }
    const timespec times[] = {{0, UTIME_OMIT}, original->modified};
    result.isOriginalKnown = true;
    result.isInOwnersDirectory = original->uid == directoryOwner;
    result.hasOriginalOwner = result.isInOwnersDirectory && ::fchown(file, original->uid, original->gid) == 0;
    result.hasOriginalMode = result.hasOriginalOwner && ::fchmod(file, original->mode & givenBackBits) == 0;
    result.hasOriginalTime = ::futimens(file, times) == 0;
}

/// Writes the content and everything else, durably. False with errno set on failure.
bool fill(int copy, int file, const UniqueFd& directory, RestoreResult& result)
{
    struct stat source = {};
    struct stat place = {};
    struct stat written = {};
    if (::fstat(copy, &source) != 0 || ::fstat(directory.get(), &place) != 0 ||
        !copyFileContent(copy, file, source.st_size)) {
        return false;
    }
    giveState(file, OriginalState::attachedTo(copy), place.st_uid, result);
    if (::fsync(file) != 0 || ::fstat(file, &written) != 0) {
        return false;
    }
    result.size = written.st_size;
    result.mode = written.st_mode & ~static_cast<mode_t>(S_IFMT);
    result.uid = written.st_uid;
    result.gid = written.st_gid;
    if (written.st_size != source.st_size) {
        errno = EIO;
        return false;
    }
    return true;
}

bool hasNameOf(const QByteArray& copy, const QDateTime& time)
{
    return copy.startsWith(QLocale::c().toString(time, QStringLiteral("yyyy-MM-dd_hh-mm-ss_")).toLatin1());
}

/// Waits while a new copy of the file could get the name of this one. The service, finding the file again and
/// the name taken, would remove it without making a copy, just before this one is removed as well.
void letNamePass(const QByteArray& copy)
{
    bool isNear = true;
    while (isNear) {
        const QDateTime now = QDateTime::currentDateTime();
        isNear = false;
        for (int seconds = 0; seconds <= secondsUntilFound; ++seconds) {
            isNear = isNear || hasNameOf(copy, now.addSecs(seconds));
        }
        if (isNear) {
            QThread::msleep(pauseMs);
        }
    }
}

RestoreResult restoreInto(const UniqueFd& directory, const QByteArray& name, const UniqueFd& copy)
{
    struct stat there = {};
    // The name is taken only by publishing it; this saves writing a large file in vain.
    if (::fstatat(directory.get(), name.constData(), &there, AT_SYMLINK_NOFOLLOW) == 0) {
        return failure(RestoreOutcome::TargetExists, EEXIST);
    }
    if (errno != ENOENT) {
        return failure(RestoreOutcome::NotWritten, errno);
    }
    RestoreResult result;
    PendingFile file(directory, name, passingName());
    if (!file.create(passingMode) || !fill(copy.get(), file.file(), directory, result)) {
        return failure(RestoreOutcome::NotWritten, errno);
    }
    if (!file.publish()) {
        const int error = errno;
        return failure(error == EEXIST ? RestoreOutcome::TargetExists : RestoreOutcome::NotWritten, error);
    }
    // The directory's owner may have put something else under the passing name. At once, before the file
    // monitor, too, can have found the file.
    if (!isNamed(file.file(), directory, name)) {
        return failure(RestoreOutcome::Vanished, errno);
    }
    if (::fsync(directory.get()) != 0) {
        const int error = errno;
        file.withdraw();
        return failure(RestoreOutcome::NotWritten, error);
    }
    return result;
}
} // namespace

RestoreResult restoreFromQuarantine(const Quarantine& quarantine, const QByteArray& name,
                                    const QByteArray& target, const RestoreOptions& options)
{
    const auto place = targetOf(target);
    if (!place) {
        return failure(RestoreOutcome::BadTarget, EINVAL);
    }
    const UniqueFd copy = quarantine.open(name);
    if (!copy.isValid()) {
        return failure(RestoreOutcome::NoCopy, errno);
    }
    const UniqueFd handle = openDirectoryWithoutLinks(place->directory);
    if (!handle.isValid()) {
        return failure(RestoreOutcome::NoDirectory, errno);
    }
    // The handle opens nothing and could not be synced.
    const UniqueFd directory(::openat(handle.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.isValid()) {
        return failure(RestoreOutcome::NoDirectory, errno);
    }
    letNamePass(name);
    RestoreResult result = restoreInto(directory, place->name, copy);
    if (result.isRestored() && !options.keepCopy) {
        result.error = quarantine.remove({name}).constFirst();
        result.outcome = result.error == 0 ? RestoreOutcome::Restored : RestoreOutcome::CopyNotRemoved;
    }
    return result;
}
