#include "platform/tvcore/tvcore.h"

#include "platform/tvcore/storeregistry.h"

void TvCore::setDirectory(const QString& directory)
{
    StoreRegistry::instance().setDirectory(directory);
}

bool TvCore::couldReadSettings()
{
    return StoreRegistry::instance().settings().couldRead();
}
