#include "platform/tvcore/protectionconfig.h"

#include "platform/tvcore/storeregistry.h"

ProtectionConfig::ProtectionConfig() = default;

bool ProtectionConfig::isOnlineProtectionEnabled() const
{
    return StoreRegistry::instance().settings().isOnlineProtectionEnabled();
}

bool ProtectionConfig::setOnlineProtectionEnabled(bool enabled)
{
    return StoreRegistry::instance().settings().setOnlineProtectionEnabled(enabled);
}
