#include "tvctl/scanner/scannedlinks.h"

#include <ctime>

namespace
{
/// The kernel dates files by a clock that ticks every few ms only, and some file systems keep whole seconds.
constexpr time_t marginSec = 2;

QPair<quint64, quint64> keyOf(const struct stat& status)
{
    return {status.st_dev, status.st_ino};
}
} // namespace

std::optional<QString> ScannedLinks::find(const struct stat& status) const
{
    const auto found = m_entries.constFind(keyOf(status));
    if (status.st_nlink <= 1 || found == m_entries.cend() || found->changedSec != status.st_ctim.tv_sec ||
        found->changedNsec != status.st_ctim.tv_nsec) {
        return std::nullopt;
    }
    return found->virusName;
}

void ScannedLinks::add(const struct stat& status, const QString& virusName)
{
    const time_t now = ::time(nullptr);
    if (status.st_nlink <= 1 || status.st_ctim.tv_sec > now - marginSec) {
        return;
    }
    if (m_entries.size() >= most) {
        m_entries.clear();
    }
    m_entries.insert(keyOf(status), {status.st_ctim.tv_sec, status.st_ctim.tv_nsec, virusName});
}
