#include "tvctl/health/systemchecks.h"

#include "common/common.h"
#include "tvctl/console/modetext.h"

#include <QSet>

#include <cerrno>

#include <sys/stat.h>

namespace
{
constexpr mode_t othersWrite = S_IWGRP | S_IWOTH;
constexpr mode_t othersAll = S_IRWXG | S_IRWXO;
/// How a user namespace shows owners that it does not know.
constexpr uid_t unknownOwner = 65534;

constexpr qint64 megabyte = 1024LL * 1024;
constexpr qint64 fullBytes = 50 * megabyte;
constexpr qint64 tightBytes = 500 * megabyte;
/// The engine unpacks up to 400 MB of one archive.
constexpr qint64 tightTemporaryBytes = 400 * megabyte;
constexpr qint64 fullTemporaryBytes = 10 * megabyte;

QString sizeText(qint64 bytes)
{
    return Common::getSizeInString(static_cast<unsigned long long>(bytes));
}

/// None of `directories` can be looked at.
Finding noneSeen(const QString& name, const QVector<DirectoryFacts>& directories)
{
    QStringList problems;
    for (const DirectoryFacts& directory : directories) {
        if (directory.error == EACCES) {
            return Finding::notChecked(name);
        }
        problems += QStringLiteral("%1: %2").arg(directory.path, qt_error_string(directory.error));
    }
    return Finding::warning(name, QStringLiteral("not checked: %1").arg(problems.join(QStringLiteral(", "))),
                            QStringLiteral("start tvfilemon once, or name its root with --root"));
}
} // namespace

Finding SystemChecks::directories(const QVector<DirectoryFacts>& parts, const QVector<DirectoryFacts>& above)
{
    const QString name = QStringLiteral("directories");
    for (const DirectoryFacts& part : parts) {
        if (!part.exists()) {
            if (part.error == EACCES) {
                return Finding::notChecked(name);
            }
            return Finding::failed(name, QStringLiteral("%1: %2").arg(part.path, qt_error_string(part.error)),
                                   QStringLiteral("install the service again"));
        }
        if (part.owner != 0) {
            return Finding::failed(name,
                                   QStringLiteral("%1 belongs to user %2").arg(part.path).arg(part.owner),
                                   QStringLiteral("chown root: '%1'").arg(part.path));
        }
        if ((part.mode & othersWrite) != 0) {
            return Finding::failed(
                name, QStringLiteral("others may write to %1 (mode %2)").arg(part.path, modeText(part.mode)),
                QStringLiteral("chmod go-w '%1'").arg(part.path));
        }
    }
    for (const DirectoryFacts& directory : above) {
        const bool isOthers = directory.owner != 0 && directory.owner != unknownOwner;
        const bool isOpen = (directory.mode & othersWrite) != 0 && (directory.mode & S_ISVTX) == 0;
        if (directory.exists() && (isOthers || isOpen)) {
            return Finding::failed(
                name,
                QStringLiteral("others may put something else in the place of what lies in %1 (owner %2, "
                               "mode %3)")
                    .arg(directory.path)
                    .arg(directory.owner)
                    .arg(modeText(directory.mode)),
                QStringLiteral("chown root: '%1' && chmod go-w '%1'").arg(directory.path));
        }
    }
    return Finding::ok(name, QStringLiteral("only root may change the installation"));
}

Finding SystemChecks::privacy(const QVector<DirectoryFacts>& secret)
{
    const QString name = QStringLiteral("privacy");
    QStringList paths;
    for (const DirectoryFacts& directory : secret) {
        if (!directory.exists()) {
            continue;
        }
        if ((directory.mode & othersAll) != 0) {
            return Finding::failed(name,
                                   QStringLiteral("others may look into %1 (mode %2)")
                                       .arg(directory.path, modeText(directory.mode)),
                                   QStringLiteral("chmod 0700 '%1'").arg(directory.path));
        }
        paths += directory.path;
    }
    if (paths.isEmpty()) {
        return noneSeen(name, secret);
    }
    return Finding::ok(name,
                       QStringLiteral("only root may look into %1").arg(paths.join(QStringLiteral(", "))));
}

Finding SystemChecks::quarantine(const DirectoryFacts& quarantine, bool isRoot)
{
    const QString name = QStringLiteral("quarantine");
    const QString loss = QStringLiteral("infected files are removed without a copy");
    if (quarantine.error == ENOENT) {
        return Finding::warning(
            name,
            QStringLiteral("%1 is made with the first copy, and others may look into it then")
                .arg(quarantine.path),
            QStringLiteral("mkdir -m 0700 '%1'").arg(quarantine.path));
    }
    if (quarantine.exists() && !quarantine.isDirectory) {
        return Finding::failed(name, QStringLiteral("%1 is no directory: %2").arg(quarantine.path, loss),
                               QStringLiteral("rm '%1' && mkdir -m 0700 '%1'").arg(quarantine.path));
    }
    if (!quarantine.exists()) {
        return Finding::notChecked(name);
    }
    if (quarantine.isReadOnly) {
        return Finding::failed(
            name, QStringLiteral("%1 lies on a read-only file system: %2").arg(quarantine.path, loss),
            QStringLiteral("mount -o remount,rw \"$(findmnt -nT '%1' -o TARGET)\"").arg(quarantine.path));
    }
    if (!isRoot) {
        return Finding::notChecked(name);
    }
    if (!quarantine.isWritable) {
        return Finding::failed(name, QStringLiteral("%1 cannot be written to: %2").arg(quarantine.path, loss),
                               QStringLiteral("chmod 0700 '%1'; see also lsattr -d").arg(quarantine.path));
    }
    return Finding::ok(name, QStringLiteral("copies can be put into %1").arg(quarantine.path));
}

Finding SystemChecks::diskSpace(const QVector<DirectoryFacts>& written)
{
    const QString name = QStringLiteral("disk_space");
    const DirectoryFacts* tightest = nullptr;
    for (const DirectoryFacts& directory : written) {
        if (!directory.exists()) {
            continue;
        }
        if (directory.isOutOfFiles) {
            return Finding::failed(name,
                                   QStringLiteral("no more files can be made in %1").arg(directory.path),
                                   QStringLiteral("remove files: df -i '%1'").arg(directory.path));
        }
        if (tightest == nullptr || directory.freeBytes < tightest->freeBytes) {
            tightest = &directory;
        }
    }
    if (tightest == nullptr) {
        return noneSeen(name, written);
    }
    const QString seen =
        QStringLiteral("%1 are free in %2").arg(sizeText(tightest->freeBytes), tightest->path);
    const QString fix = QStringLiteral("make room: df -h '%1'; old copies: tvctl quarantine delete "
                                       "--older-than 30d")
                            .arg(tightest->path);
    if (tightest->freeBytes < fullBytes) {
        return Finding::failed(name, seen, fix);
    }
    return tightest->freeBytes < tightBytes ? Finding::warning(name, seen, fix) : Finding::ok(name, seen);
}

Finding SystemChecks::engineDirectory(const std::optional<DirectoryFacts>& directory, Process process)
{
    const QString name = QStringLiteral("engine_directory");
    const QString fix = QStringLiteral("make room in /run or /dev/shm, or in the installation; "
                                       "then systemctl restart tvfilemon");
    if (process == Process::None) {
        return Finding::warning(name, QStringLiteral("not checked: the service does not run"),
                                QStringLiteral("systemctl start tvfilemon"));
    }
    if (process == Process::Hidden) {
        return Finding::notChecked(name);
    }
    if (!directory) {
        return Finding::failed(name, QStringLiteral("the engine has nowhere to put temporary files"), fix);
    }
    if (directory->isReadOnly || !directory->isWritable || directory->isOutOfFiles) {
        return Finding::failed(
            name, QStringLiteral("%1 takes no files, so archives are not looked into").arg(directory->path),
            fix);
    }
    const QString seen =
        QStringLiteral("%1 are free in %2").arg(sizeText(directory->freeBytes), directory->path);
    if (directory->freeBytes < fullTemporaryBytes) {
        return Finding::failed(name, seen + QStringLiteral(": too little for most archives"), fix);
    }
    return directory->freeBytes < tightTemporaryBytes
               ? Finding::warning(name, seen + QStringLiteral(": too little for the largest archives"), fix)
               : Finding::ok(name, seen);
}

Finding SystemChecks::log(const DirectoryFacts& directory, const DirectoryFacts& file, bool isRoot)
{
    const QString name = QStringLiteral("log");
    if (directory.error == EACCES || (directory.exists() && !isRoot)) {
        return Finding::notChecked(name);
    }
    if (directory.error == ENOENT) {
        return Finding::warning(name, QStringLiteral("there is none yet: the service makes it"),
                                QStringLiteral("systemctl start tvfilemon"));
    }
    if (!directory.exists() || !directory.isDirectory) {
        return Finding::failed(name, QStringLiteral("%1 is no directory").arg(directory.path),
                               QStringLiteral("mend it: ls -ld '%1'").arg(directory.path));
    }
    const DirectoryFacts& last = file.exists() ? file : directory;
    if (directory.isReadOnly || !last.isWritable || (file.exists() && file.isDirectory)) {
        return Finding::failed(name, QStringLiteral("%1 takes no lines").arg(file.path),
                               QStringLiteral("mend it: ls -ld '%1' '%2'").arg(directory.path, file.path));
    }
    return Finding::ok(name, file.path);
}
