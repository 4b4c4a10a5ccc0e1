#include "tvctl/sweep/places.h"

#include <QCryptographicHash>

#include <algorithm>
#include <cstring>

namespace
{
Place digestOf(const QByteArray& path, quint64 device, quint64 inode)
{
    const quint64 numbers[] = {device, inode};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(reinterpret_cast<const char*>(numbers), sizeof(numbers));
    hash.addData(path);
    const QByteArray digest = hash.result();
    Place place = {};
    std::memcpy(place.data(), digest.constData(), place.size());
    return place;
}
} // namespace

Place placeOf(const QByteArray& path, const struct stat& status)
{
    return digestOf(path, status.st_dev, status.st_ino);
}

Place placeOf(const QByteArray& path)
{
    // No directory has the inode 0.
    return digestOf(path, 0, 0);
}

Places::Places(const QByteArray& packed)
{
    m_sorted.resize(static_cast<size_t>(packed.size()) / sizeof(Place));
    for (size_t i = 0; i < m_sorted.size(); ++i) {
        std::memcpy(m_sorted[i].data(), packed.constData() + i * sizeof(Place), sizeof(Place));
    }
    std::sort(m_sorted.begin(), m_sorted.end());
    m_sorted.erase(std::unique(m_sorted.begin(), m_sorted.end()), m_sorted.end());
}

bool Places::contains(const Place& place) const
{
    return std::binary_search(m_sorted.begin(), m_sorted.end(), place);
}

QByteArray Places::packed() const
{
    return QByteArray(reinterpret_cast<const char*>(m_sorted.data()),
                      static_cast<int>(m_sorted.size() * sizeof(Place)));
}

void appendPlace(QByteArray& packed, const Place& place)
{
    packed.append(place.data(), static_cast<int>(place.size()));
}
