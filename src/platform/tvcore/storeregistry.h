#pragma once

#include "platform/tvcore/hashcachestore.h"
#include "platform/tvcore/reportstore.h"
#include "platform/tvcore/settingsstore.h"

#include <QString>

/// The stores of this process, one of each file.
///
/// Made on first use and never destroyed, so that accessors of any lifetime can ask it; the stores are closed
/// when the application object goes.
class StoreRegistry
{
public:
    static StoreRegistry& instance();

    SettingsStore& settings()
    {
        return m_settings;
    }
    ReportStore& reports()
    {
        return m_reports;
    }
    HashCacheStore& hashCache()
    {
        return m_hashCache;
    }

    void setDirectory(const QString& directory);

private:
    StoreRegistry() = default;
    static void closeStores();
    void closeWithApplication();

    SettingsStore m_settings;
    ReportStore m_reports;
    HashCacheStore m_hashCache;
    bool m_closesWithApplication = false;
};
