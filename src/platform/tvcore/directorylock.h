#pragma once

#include "common/uniquefd.h"
#include "platform/tvcore/storeerror.h"

#include <QString>

/// Keeps the library's other processes from opening or setting aside a store in `directory` meanwhile.
///
/// Without it, two processes that find a store damaged at the same time could each set one aside: the
/// damaged one, and the new one that the other has just made in its place.
class DirectoryLock
{
public:
    /// Does not wait; see `error`.
    explicit DirectoryLock(const QString& directory);

    /// Busy while another process has it.
    const StoreError& error() const
    {
        return m_error;
    }

private:
    UniqueFd m_directory;
    StoreError m_error;
};
