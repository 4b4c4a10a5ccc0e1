#include "monitor/leasedfiles.h"

#include "common/heldfile.h"

#include <cerrno>
#include <utility>

namespace
{
enum class Outcome
{
    Gone,
    /// Or nothing could be found out for want of something.
    Leased,
    Free
};

Outcome tryToOpen(const QByteArray& path)
{
    const HeldFile file = HeldFile::atAnyDepth(path);
    if (file.object().kind() != CheckedFile::Kind::Missing) {
        return file.object().openForReading().isValid() || errno != EAGAIN ? Outcome::Free : Outcome::Leased;
    }
    const int error = file.error();
    return error == EMFILE || error == ENFILE || error == ENOMEM ? Outcome::Leased : Outcome::Gone;
}
} // namespace

bool LeasedFiles::add(const QByteArray& path, Clock::time_point now)
{
    remove(path);
    append({path, now + pause});
    if (size() <= limit) {
        m_isOverflowTold = m_isOverflowTold && size() > limit / 2;
        return true;
    }
    takeFirst();
    return std::exchange(m_isOverflowTold, true);
}

void LeasedFiles::remove(const QByteArray& path)
{
    const auto place = m_places.constFind(path);
    if (place != m_places.constEnd()) {
        m_files.erase(place.value());
        m_places.erase(place);
    }
}

std::optional<QByteArray> LeasedFiles::takeFree(Clock::time_point now)
{
    const Clock::time_point began = Clock::now();
    while (!m_files.empty() && m_files.front().due <= now && Clock::now() - began < timeAtOnce) {
        File file = takeFirst();
        switch (tryToOpen(file.path)) {
        case Outcome::Gone:
            break;
        case Outcome::Leased:
            append({std::move(file.path), now + pause});
            break;
        case Outcome::Free:
            return std::move(file.path);
        }
    }
    return std::nullopt;
}

std::optional<LeasedFiles::Clock::time_point> LeasedFiles::nextDue() const
{
    return m_files.empty() ? std::nullopt : std::make_optional(m_files.front().due);
}

void LeasedFiles::append(File file)
{
    m_files.push_back(std::move(file));
    m_places.insert(m_files.back().path, std::prev(m_files.end()));
}

LeasedFiles::File LeasedFiles::takeFirst()
{
    File first = std::move(m_files.front());
    m_files.pop_front();
    m_places.remove(first.path);
    return first;
}
