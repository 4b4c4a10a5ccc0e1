#include "tvctl/scanner/exclusions.h"

#include "common/filename.h"
#include "platform/tvcore/scanconfig.h"

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
    exclusions.m_files = config.getExcludeList(fileList);
    const QSet<QString> directories = config.getExcludeList(directoryList);
    for (const QString& directory : directories) {
        exclusions.m_directories.insert(FileName::toBytes(directory));
    }
    return exclusions;
}

bool Exclusions::isFileExcluded(const QString& path) const
{
    return path.endsWith(QLatin1String(".tvq")) || m_files.contains(path);
}
