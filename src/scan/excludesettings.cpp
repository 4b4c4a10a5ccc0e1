#include "scan/excludesettings.h"

namespace
{
/// The store's numbers of the lists.
constexpr int fileList = 0;
constexpr int directoryList = 1;
constexpr int otherList = 2;
} // namespace

ExcludeSettings* ExcludeSettings::_instance = nullptr;

ExcludeSettings* ExcludeSettings::getInstance()
{
    if (_instance == nullptr) {
        _instance = new ExcludeSettings;
    }
    return _instance;
}

void ExcludeSettings::releaseInstance()
{
    delete _instance;
    _instance = nullptr;
}

ExcludeSettings::ExcludeSettings()
{
    load();
}

void ExcludeSettings::load()
{
    m_others = m_scanConfig.getExcludeList(otherList);
    m_directories = m_scanConfig.getExcludeList(directoryList);
    m_directories.insert(QStringLiteral("/proc"));
    m_directories.insert(QStringLiteral("/sys"));
    m_files = m_scanConfig.getExcludeList(fileList);
}

void ExcludeSettings::reloadExcludes()
{
    m_others.clear();
    m_directories.clear();
    m_files.clear();
    load();
}

bool ExcludeSettings::isFileExcluded(const QString& path)
{
    return path.endsWith(QLatin1String(".tvq")) || m_files.contains(path);
}

bool ExcludeSettings::isDirectoryExcluded(const QString& path)
{
    return m_directories.contains(path);
}
