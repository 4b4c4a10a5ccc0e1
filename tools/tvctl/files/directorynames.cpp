#include "tvctl/files/directorynames.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <dirent.h>

namespace
{
constexpr size_t bufferBytes = 65536;

bool isReference(const char* name)
{
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}
} // namespace

DirectoryNames::DirectoryNames(const QByteArray& name)
{
    add(DT_UNKNOWN, name.constData());
}

int DirectoryNames::read(int directory)
{
    int error = 0;
    // Not by readdir, whose stream would want a descriptor of its own.
    std::vector<char> buffer(bufferBytes);
    while (true) {
        const ssize_t size = ::getdents64(directory, buffer.data(), buffer.size());
        if (size <= 0) {
            error = size < 0 ? errno : 0;
            break;
        }
        for (ssize_t at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + at);
            if (!isReference(entry->d_name)) {
                add(entry->d_type, entry->d_name);
            }
            at += entry->d_reclen;
        }
    }
    std::sort(m_starts.begin(), m_starts.end(), [this](size_t left, size_t right) {
        return std::strcmp(m_packed.data() + left + 1, m_packed.data() + right + 1) < 0;
    });
    return error;
}

size_t DirectoryNames::lowerBound(const QByteArray& name) const
{
    const auto found = std::lower_bound(
        m_starts.begin(), m_starts.end(), name, [this](size_t start, const QByteArray& wanted) {
            return std::strcmp(m_packed.data() + start + 1, wanted.constData()) < 0;
        });
    return static_cast<size_t>(found - m_starts.begin());
}

void DirectoryNames::add(unsigned char type, const char* name)
{
    m_starts.push_back(m_packed.size());
    m_packed.push_back(static_cast<char>(type));
    m_packed.insert(m_packed.end(), name, name + std::strlen(name) + 1);
}
