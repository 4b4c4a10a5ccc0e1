#pragma once

#include <QByteArray>

#include <array>
#include <vector>

#include <sys/stat.h>

/// A path, or the directory at one, as a digest: two that differ are never taken for the same, also when
/// somebody tries.
using Place = std::array<char, 16>;

/// Whatever is at `path`.
Place placeOf(const QByteArray& path);
/// Whatever has the `name` in the directory whose path is at `directory`. So a path of any length costs no
/// more than its last name.
Place placeBelow(const Place& directory, const QByteArray& name);
/// The directory of this status at the path of `place`. Another one there has another place, and so has the
/// same one elsewhere.
Place placeOfDirectory(const Place& place, const struct stat& status);

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
