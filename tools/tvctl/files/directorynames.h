#pragma once

#include <QByteArray>

#include <cstddef>
#include <vector>

/// The names in a directory, sorted by their bytes, packed: a directory may hold millions.
class DirectoryNames
{
public:
    DirectoryNames() = default;
    /// Just `name`, of which nobody has told yet what it is.
    explicit DirectoryNames(const QByteArray& name);

    /// Reads what is in `directory`, open for reading, without "." and "..". Returns 0, or the error number
    /// that ended the reading early; the names up to there are kept.
    int read(int directory);

    size_t size() const
    {
        return m_starts.size();
    }
    const char* name(size_t index) const
    {
        return m_packed.data() + m_starts.at(index) + 1;
    }
    /// What the directory says that it is: DT_REG, DT_DIR ..., or DT_UNKNOWN.
    unsigned char type(size_t index) const
    {
        return static_cast<unsigned char>(m_packed.at(m_starts.at(index)));
    }

    /// The index of the first name that is not in front of `name`; `size()` when there is none.
    size_t lowerBound(const QByteArray& name) const;

private:
    void add(unsigned char type, const char* name);

    /// For each entry its type in one byte, its name, and a zero byte.
    std::vector<char> m_packed;
    std::vector<size_t> m_starts;
};
