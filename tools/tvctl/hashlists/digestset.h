#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <unordered_set>

/// Remembers hashes in little memory: some 60 bytes for a SHA-256.
///
/// Lists come from strangers, who could make up hashes that collide in any order known beforehand. So the
/// places depend on numbers that are drawn anew for each set.
class DigestSet
{
public:
    enum class Answer
    {
        New,
        Known,
        /// Not known, and no room to remember it.
        Forgotten
    };

    /// Remembers up to `capacity` hashes.
    explicit DigestSet(std::size_t capacity);

    /// `digits` are 32, 40 or 64 hexadecimal digits in lower case. Hashes of different length differ.
    Answer insert(std::string_view digits);

private:
    template <std::size_t size> using Digest = std::array<std::uint32_t, size>;

    class Placement
    {
    public:
        Placement();
        template <std::size_t size> std::size_t operator()(const Digest<size>& digest) const noexcept;

    private:
        std::array<std::uint64_t, 9> m_factors = {};
    };

    template <std::size_t size> using Set = std::unordered_set<Digest<size>, Placement>;

    template <std::size_t size> Answer insertInto(Set<size>& set, std::string_view digits);

    std::size_t m_left;
    // Counted in words of four bytes.
    Set<4> m_md5;
    Set<5> m_sha1;
    Set<8> m_sha256;
};
