#include "tvctl/quarantine/quarantine.h"

#include "tvctl/files/directorynames.h"
#include "tvctl/quarantine/quarantinename.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

Quarantine::Quarantine(const QByteArray& path)
    : m_directory(::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
      m_error(m_directory.isValid() ? 0 : errno)
{
}

QuarantineListing Quarantine::list() const
{
    QuarantineListing listing;
    // A descriptor of its own reads from the beginning each time.
    const UniqueFd directory(::openat(m_directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.isValid()) {
        listing.error = m_error != 0 ? m_error : errno;
        return listing;
    }
    DirectoryNames names;
    listing.error = names.read(directory.get());
    for (size_t i = 0; i < names.size(); ++i) {
        const QByteArray name(names.name(i));
        if (!QuarantineName::parse(name)) {
            ++(QuarantineName::isPassing(name) ? listing.unfinished : listing.foreign);
            continue;
        }
        const auto found = entry(name);
        const int error = errno;
        if (found) {
            listing.entries.append(*found);
        } else if (error != ENOENT) {
            ++listing.foreign;
        }
    }
    return listing;
}

std::optional<QuarantineEntry> Quarantine::entry(const QByteArray& name) const
{
    const auto file = check(name);
    if (!file) {
        return std::nullopt;
    }
    const auto parsed = QuarantineName::parse(name);
    QuarantineEntry found;
    found.name = name;
    found.time = QDateTime::fromSecsSinceEpoch(parsed->moments().constFirst());
    found.pathDigest = parsed->pathDigest();
    found.size = file->status().st_size;
    found.original = OriginalState::attachedTo(file->openForReading().get());
    return found;
}

UniqueFd Quarantine::open(const QByteArray& name) const
{
    const auto file = check(name);
    return file ? file->openForReading() : UniqueFd();
}

QVector<int> Quarantine::remove(const QVector<QByteArray>& names) const
{
    QVector<int> errors;
    errors.reserve(names.size());
    for (const QByteArray& name : names) {
        const bool isRemoved = check(name) && ::unlinkat(m_directory.get(), name.constData(), 0) == 0;
        errors.append(isRemoved ? 0 : errno);
    }
    // Once for all of them: a hundred thousand would take an hour.
    if (errors.contains(0) && ::fsync(m_directory.get()) != 0) {
        const int error = errno;
        std::replace(errors.begin(), errors.end(), 0, error);
    }
    return errors;
}

std::optional<CheckedFile> Quarantine::check(const QByteArray& name) const
{
    if (m_error != 0 || !QuarantineName::parse(name)) {
        errno = m_error == 0 ? ENOENT : m_error;
        return std::nullopt;
    }
    CheckedFile file(m_directory, name);
    if (file.kind() == CheckedFile::Kind::Missing) {
        return std::nullopt;
    }
    if (file.kind() != CheckedFile::Kind::Regular) {
        errno = EINVAL;
        return std::nullopt;
    }
    return file;
}
