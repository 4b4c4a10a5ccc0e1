#include "tvctl/scanner/exclusions.h"

#include "common/filename.h"
#include "platform/tvcore/scanconfig.h"

#include <algorithm>

namespace
{
/// The store's numbers of the lists.
constexpr int fileList = 0;
constexpr int directoryList = 1;
} // namespace

Exclusions Exclusions::read()
{
    Exclusions exclusions;
    ScanConfig config;
    exclusions.m_files = Paths(config.getExcludeList(fileList));
    exclusions.m_directories = Paths(config.getExcludeList(directoryList));
    return exclusions;
}

Exclusions::Paths::Paths(const QSet<QString>& list)
{
    for (const QString& text : list) {
        const QByteArray path = FileName::toBytes(text);
        m_paths.insert(path);
        m_longest = std::max(m_longest, path.size());
    }
}
