#include "common/owndevices.h"

#include <algorithm>

#include <sys/stat.h>

namespace
{
std::optional<dev_t> deviceOf(const char* path)
{
    struct stat status = {};
    return ::stat(path, &status) == 0 ? std::make_optional(status.st_dev) : std::nullopt;
}
} // namespace

OwnDevices::OwnDevices() : m_devices{deviceOf("/"), deviceOf("/home")}
{
}

bool OwnDevices::contains(dev_t device) const
{
    return std::find(m_devices.begin(), m_devices.end(), device) != m_devices.end();
}

bool OwnDevices::hold(int file) const
{
    struct stat status = {};
    return ::fstat(file, &status) == 0 && contains(status.st_dev);
}
