#pragma once

#include <QDir>
#include <QString>

#include <fcntl.h>
#include <unistd.h>

/// How many descriptors this process has open, the one that counts them left out.
inline int openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd"))
               .entryList(QDir::System | QDir::AllEntries | QDir::NoDotAndDotDot)
               .size() -
           1;
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
