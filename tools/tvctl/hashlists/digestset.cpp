#include "tvctl/hashlists/digestset.h"

#include <QRandomGenerator>

namespace
{
std::uint32_t valueOf(char digit)
{
    return static_cast<std::uint32_t>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
}
} // namespace

DigestSet::Placement::Placement()
{
    for (std::uint64_t& factor : m_factors) {
        factor = QRandomGenerator::system()->generate64();
    }
}

template <std::size_t size>
std::size_t DigestSet::Placement::operator()(const Digest<size>& digest) const noexcept
{
    // The upper half of such a sum is the same for two digests with a chance of one in 2^32, whatever they
    // are.
    std::uint64_t sum = m_factors[size];
    for (std::size_t i = 0; i < size; ++i) {
        sum += m_factors[i] * digest[i];
    }
    return sum >> 32;
}

DigestSet::DigestSet(std::size_t capacity) : m_left(capacity)
{
}

DigestSet::Answer DigestSet::insert(std::string_view digits)
{
    switch (digits.size()) {
    case 32:
        return insertInto(m_md5, digits);
    case 40:
        return insertInto(m_sha1, digits);
    default:
        return insertInto(m_sha256, digits);
    }
}

template <std::size_t size> DigestSet::Answer DigestSet::insertInto(Set<size>& set, std::string_view digits)
{
    Digest<size> digest = {};
    for (std::size_t i = 0; i < size * 8; ++i) {
        digest[i / 8] = (digest[i / 8] << 4) | valueOf(digits[i]);
    }
    if (m_left == 0) {
        return set.count(digest) > 0 ? Answer::Known : Answer::Forgotten;
    }
    if (!set.insert(digest).second) {
        return Answer::Known;
    }
    --m_left;
    return Answer::New;
}
