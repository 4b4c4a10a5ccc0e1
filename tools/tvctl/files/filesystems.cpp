#include "tvctl/files/filesystems.h"

#include <algorithm>
#include <iterator>

#include <linux/magic.h>

namespace
{
// Not in every version of the kernel's header.
constexpr long configFs = 0x62656570;
constexpr long fuseControl = 0x65735543;
constexpr long messageQueues = 0x19800202;
constexpr long rpcPipes = 0x67596969;
constexpr long zfs = 0x2fc12fc1;
constexpr long jfs = 0x3153464a;
constexpr long bcachefs = 0xca451a4e;
constexpr long ubifs = 0x24051905;

constexpr long pseudo[] = {
    PROC_SUPER_MAGIC, SYSFS_MAGIC,    DEBUGFS_MAGIC,      TRACEFS_MAGIC,       SECURITYFS_MAGIC,
    SELINUX_MAGIC,    SMACK_MAGIC,    CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC, BPF_FS_MAGIC,
    PSTOREFS_MAGIC,   EFIVARFS_MAGIC, DEVPTS_SUPER_MAGIC, BINFMTFS_MAGIC,      NSFS_MAGIC,
    HUGETLBFS_MAGIC,  configFs,       fuseControl,        messageQueues,       rpcPipes,
};

constexpr long withChangeTimes[] = {
    EXT4_SUPER_MAGIC,
    XFS_SUPER_MAGIC,
    BTRFS_SUPER_MAGIC,
    F2FS_SUPER_MAGIC,
    REISERFS_SUPER_MAGIC,
    ECRYPTFS_SUPER_MAGIC,
    NILFS_SUPER_MAGIC,
    zfs,
    jfs,
    bcachefs,
    ubifs,
};

template <typename Table> bool contains(const Table& table, long type)
{
    return std::find(std::begin(table), std::end(table), type) != std::end(table);
}
} // namespace

bool FileSystems::isPseudo(long type)
{
    return contains(pseudo, type);
}

bool FileSystems::keepsChangeTimes(long type)
{
    return contains(withChangeTimes, type);
}
