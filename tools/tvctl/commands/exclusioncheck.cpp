#include "tvctl/commands/exclusioncheck.h"

#include "common/filename.h"

#include <QByteArray>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include <sys/stat.h>

namespace
{
struct Free
{
    void operator()(char* text) const
    {
        std::free(text);
    }
};

/// Where `path` leads, all links resolved; empty when it leads nowhere.
QByteArray resolved(const QByteArray& path)
{
    const std::unique_ptr<char, Free> real(::realpath(path.constData(), nullptr));
    return QByteArray(real.get());
}

QByteArray directoryOf(const QByteArray& path)
{
    const int slash = path.lastIndexOf('/');
    return slash <= 0 ? QByteArrayLiteral("/") : path.left(slash);
}

/// The one of `roots` that `path` is in; empty when it is in none.
QByteArray rootOf(const QByteArray& path, const QStringList& roots)
{
    for (const QString& each : roots) {
        const QByteArray root = FileName::toBytes(each);
        if (path.startsWith(root + '/')) {
            return root;
        }
    }
    return {};
}

/// ".." behind a link leads elsewhere than to the directory above it in the text.
QString cleaningWarning(const QByteArray& argument, const QByteArray& path)
{
    const QByteArray meant = resolved(argument);
    const QByteArray stored = resolved(path);
    return meant.isEmpty() || meant == stored
               ? QString()
               : QStringLiteral("the argument leads to %1 instead, because of a link in front of \"..\"")
                     .arg(FileName::toText(meant));
}

QString linkWarning(const QByteArray& path, const QStringList& roots)
{
    const QByteArray directory = directoryOf(path);
    const QByteArray real = resolved(directory);
    // The monitor calls what it finds by the names of its roots, whatever these are themselves, and follows
    // no links below them.
    const QByteArray root = rootOf(path, roots);
    const bool isReached = real.isEmpty() || real == directory ||
                           (!root.isEmpty() && real == resolved(root) + directory.mid(root.size()));
    return isReached
               ? QString()
               : QStringLiteral("a link leads to it; file events come with the path without links, below %1")
                     .arg(FileName::toText(real));
}

QString kindWarning(ExclusionList list, const QByteArray& path)
{
    struct stat status = {};
    if (::lstat(path.constData(), &status) != 0) {
        const int error = errno;
        return error == ENOENT || error == ENOTDIR
                   ? QStringLiteral("it does not exist")
                   : QStringLiteral("it cannot be looked at: %1").arg(qt_error_string(error));
    }
    const bool isDirectory = S_ISDIR(status.st_mode);
    if (list == ExclusionList::Files && isDirectory) {
        return QStringLiteral("it is a directory, and in the list of files excludes nothing that is in it");
    }
    if (list == ExclusionList::Directories && !isDirectory) {
        return QStringLiteral("it is no directory");
    }
    return {};
}
} // namespace

QStringList exclusionWarnings(ExclusionList list, const std::string& argument, const QString& path,
                              const QStringList& watchedRoots)
{
    QStringList problems;
    const QByteArray bytes = FileName::toBytes(path);
    const QByteArray given = QByteArray::fromStdString(argument);
    if (!given.startsWith('/')) {
        problems += QStringLiteral("it is stored as a full path: %1").arg(path);
    } else if (bytes != given && bytes + '/' != given) {
        problems += QStringLiteral("it is stored without superfluous components: %1").arg(path);
    }
    if (given.endsWith('/') && bytes != given) {
        problems += QStringLiteral("it is stored without the slash behind it");
    }
    if (list == ExclusionList::Other) {
        return problems;
    }
    if (list == ExclusionList::Files && path.endsWith(QLatin1String(".tvq"))) {
        problems += QStringLiteral("copies in quarantine, *.tvq, are never scanned anyway");
    }
    problems += cleaningWarning(given, bytes);
    problems += kindWarning(list, bytes);
    problems += linkWarning(bytes, watchedRoots);
    problems.removeAll(QString());
    return problems;
}
