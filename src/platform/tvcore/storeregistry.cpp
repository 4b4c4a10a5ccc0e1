#include "platform/tvcore/storeregistry.h"

#include <QCoreApplication>

StoreRegistry& StoreRegistry::instance()
{
    static StoreRegistry* const registry = new StoreRegistry;
    registry->closeWithApplication();
    return *registry;
}

void StoreRegistry::setDirectory(const QString& directory)
{
    m_settings.setDirectory(directory);
    m_reports.setDirectory(directory);
    m_hashCache.setDirectory(directory);
}

void StoreRegistry::closeWithApplication()
{
    if (!m_closesWithApplication && QCoreApplication::instance() != nullptr) {
        m_closesWithApplication = true;
        qAddPostRoutine(&StoreRegistry::closeStores);
    }
}

void StoreRegistry::closeStores()
{
    StoreRegistry& registry = instance();
    registry.m_settings.close();
    registry.m_reports.close();
    registry.m_hashCache.close();
    // Qt forgets the routine once it has run; a later application object needs it again.
    registry.m_closesWithApplication = false;
}
