#pragma once

#include "platform/tvcore/iocscanconfig.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <string>
#include <vector>

/// The three lists of hashes as commands work with them.
namespace HashPages
{
/// In the order in which the service looks into them.
const std::vector<IOCScanConfig::HASH_TYPE>& types();

/// "md5", "sha1" or "sha256".
QString nameOf(IOCScanConfig::HASH_TYPE type);

/// Calls `page` with one part of the list after the other, so that a long list never is in memory as a whole;
/// a part is never empty. Throws ToolError when the store cannot be read. Somebody who changes the list
/// meanwhile may make a hash come twice or not at all.
void forEach(IOCScanConfig::HASH_TYPE type, const std::function<void(const QStringList&)>& page);
} // namespace HashPages
