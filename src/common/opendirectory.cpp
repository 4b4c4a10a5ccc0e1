#include "common/opendirectory.h"

#include <QList>

#include <cerrno>

#include <fcntl.h>

UniqueFd openDirectoryWithoutLinks(const QByteArray& path)
{
    constexpr int flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    if (!path.startsWith('/')) {
        errno = EINVAL;
        return {};
    }
    QList<QByteArray> names = path.split('/');
    names.removeAll(QByteArray());
    UniqueFd directory(::open(('/' + names.value(0)).constData(), flags));
    for (int i = 1; i < names.size() && directory.isValid(); ++i) {
        directory = UniqueFd(::openat(directory.get(), names.at(i).constData(), flags | O_NOFOLLOW));
    }
    return directory;
}
