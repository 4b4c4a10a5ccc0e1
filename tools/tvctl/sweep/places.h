#pragma once

#include <QByteArray>

#include <array>
#include <vector>

#include <sys/stat.h>

/// A directory at its path, or a path alone, as a digest: two that differ are never taken for the same, also
/// when somebody tries.
using Place = std::array<char, 16>;

/// The directory of this status at `path`. Another one in its place has another place, and so has the same
/// one elsewhere.
Place placeOf(const QByteArray& path, const struct stat& status);
/// Whatever is at `path`.
Place placeOf(const QByteArray& path);

/// A set of places; 16 bytes each.
class Places
{
public:
    Places() = default;
    /// As they come from `bytes`; a rest that is no place is dropped.
    explicit Places(const QByteArray& packed);

    bool isEmpty() const
    {
        return m_sorted.empty();
    }
    size_t size() const
    {
        return m_sorted.size();
    }
    bool contains(const Place& place) const;
    QByteArray packed() const;

private:
    std::vector<Place> m_sorted;
};

/// Appends the bytes of `place` to `packed`, from which Places are made.
void appendPlace(QByteArray& packed, const Place& place);
