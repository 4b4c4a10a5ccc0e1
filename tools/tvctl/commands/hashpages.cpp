#include "tvctl/commands/hashpages.h"

#include "tvctl/console/toolerror.h"
#include "tvctl/installation/storeaccess.h"

namespace
{
/// Some 10 MB in memory.
constexpr int pageSize = 50000;
} // namespace

const std::vector<IOCScanConfig::HASH_TYPE>& HashPages::types()
{
    static const std::vector<IOCScanConfig::HASH_TYPE> all = {IOCScanConfig::MD5, IOCScanConfig::SHA1,
                                                              IOCScanConfig::SHA256};
    return all;
}

QString HashPages::nameOf(IOCScanConfig::HASH_TYPE type)
{
    switch (type) {
    case IOCScanConfig::MD5:
        return QStringLiteral("md5");
    case IOCScanConfig::SHA1:
        return QStringLiteral("sha1");
    default:
        return QStringLiteral("sha256");
    }
}

void HashPages::forEach(IOCScanConfig::HASH_TYPE type, const std::function<void(const QStringList&)>& page)
{
    const IOCScanConfig config;
    QStringList hashes;
    for (int from = 0;; from += pageSize) {
        if (!config.getHashes(type, hashes, from, pageSize)) {
            throw ToolError(StoreAccess::notRead(QStringLiteral("the list of hashes")));
        }
        if (hashes.isEmpty()) {
            return;
        }
        page(hashes);
    }
}
