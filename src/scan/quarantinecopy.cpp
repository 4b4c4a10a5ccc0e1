#include "scan/quarantinecopy.h"

#include "common/filecopy.h"
#include "common/filename.h"
#include "common/heldfile.h"
#include "common/originalstate.h"
#include "common/pendingfile.h"
#include "common/uniquefd.h"

#include <QByteArray>
#include <QString>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr mode_t copyMode = S_IRUSR;
} // namespace

int copyIntoQuarantine(const HeldFile& source, const QString& destination)
{
    const CheckedFile& checked = source.object();
    if (checked.kind() == CheckedFile::Kind::Missing) {
        return source.error();
    }
    if (checked.kind() != CheckedFile::Kind::Regular) {
        return checked.kind() == CheckedFile::Kind::Directory ? EISDIR : EINVAL;
    }
    const UniqueFd original = checked.openForReading();
    if (!original.isValid()) {
        return errno;
    }

    const int nameStart = destination.lastIndexOf(QLatin1Char('/')) + 1;
    const UniqueFd directory(::open(FileName::toBytes(destination.left(nameStart)).constData(),
                                    O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.isValid()) {
        return errno;
    }

    const QByteArray name = FileName::toBytes(destination.mid(nameStart));
    // No scan takes the passing name for a user's file either.
    PendingFile copy(directory, name, name + '.' + QByteArray::number(::getpid()) + ".tvq");
    if (!copy.create(copyMode)) {
        return errno;
    }
    // Without it the file can still be given back, only not quite as it was. Whoever made a link to another
    // user's file must not have it given back, where the link is, as that file was.
    if (!source.isReachedByLink()) {
        OriginalState::of(checked.status()).attachTo(copy.file());
    }
    if (!copyFileContent(original.get(), copy.file(), checked.status().st_size) ||
        ::fsync(copy.file()) != 0 || !copy.publish()) {
        return errno;
    }
    // Without this a crash could leave neither the original nor the copy.
    if (::fsync(directory.get()) != 0) {
        const int error = errno;
        copy.withdraw();
        return error;
    }
    return 0;
}
