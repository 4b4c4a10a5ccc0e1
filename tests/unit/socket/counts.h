#pragma once

#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>

#include <algorithm>

#include <fcntl.h>
#include <unistd.h>

/// How many descriptors this process has open, the one that counts them left out, and pipes, of which none is
/// the service's: the thread sanitizer looks names up through some.
inline int openDescriptors()
{
    const QDir directory(QStringLiteral("/proc/self/fd"));
    const QStringList numbers = directory.entryList(QDir::System | QDir::AllEntries | QDir::NoDotAndDotDot);
    // That of the directory itself is gone by now.
    return static_cast<int>(
        std::count_if(numbers.cbegin(), numbers.cend(), [&directory](const QString& number) {
            const QString target = QFile::symLinkTarget(directory.filePath(number));
            return !target.isEmpty() && !target.contains(QStringLiteral("/pipe:"));
        }));
}

inline int lowestFreeDescriptor()
{
    const int descriptor = ::fcntl(0, F_DUPFD_CLOEXEC, 0);
    ::close(descriptor);
    return descriptor;
}

/// How many threads this process has.
inline int runningThreads()
{
    return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
}
