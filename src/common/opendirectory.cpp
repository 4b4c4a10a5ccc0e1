#include "common/opendirectory.h"

#include <QList>

#include <fcntl.h>

UniqueFd openDirectoryWithoutLinks(const QByteArray& path)
{
    constexpr int flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    const QList<QByteArray> names = path.split('/');
    // In front of the first slash there is nothing.
    UniqueFd directory(::open(('/' + names.value(1)).constData(), flags));
    for (int i = 2; i < names.size() && directory.isValid(); ++i) {
        directory = UniqueFd(::openat(directory.get(), names.at(i).constData(), flags | O_NOFOLLOW));
    }
    return directory;
}
