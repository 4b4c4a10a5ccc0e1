#include "tvctl/sweep/places.h"

#include <QCryptographicHash>

#include <algorithm>
#include <cstring>

namespace
{
/// `kind` keeps apart what would otherwise be the same bytes.
Place digestOf(char kind, const QByteArray& first, const QByteArray& second = {})
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&kind, 1);
    hash.addData(first);
    hash.addData(second);
    const QByteArray digest = hash.result();
    Place place = {};
    std::memcpy(place.data(), digest.constData(), place.size());
    return place;
}

QByteArray bytesOf(const Place& place)
{
    return QByteArray(place.data(), static_cast<int>(place.size()));
}
} // namespace

Place placeOf(const QByteArray& path)
{
    return digestOf('p', path);
}

Place placeBelow(const Place& directory, const QByteArray& name)
{
    return digestOf('n', bytesOf(directory), name);
}

Place placeOfDirectory(const Place& place, const struct stat& status)
{
    const quint64 identity[] = {status.st_dev, status.st_ino};
    return digestOf('d', bytesOf(place),
                    QByteArray(reinterpret_cast<const char*>(identity), sizeof(identity)));
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
