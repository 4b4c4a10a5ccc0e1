#pragma once

#include "common/uniquefd.h"
#include "tvctl/detections/detectionid.h"

#include <QString>

/// A file that keeps which detection was handed on last, so that whoever goes on later leaves none out and
/// repeats none.
///
/// Only its owner may read it, one program at a time holds it, and no link is followed. It survives the end
/// of the program at any moment; it is not synced, since what was handed on is not either. All functions
/// throw ToolError.
class DetectionCursor
{
public:
    /// Takes hold of `path`, and makes it when it is not there. A file that holds anything else is refused:
    /// it would be overwritten.
    explicit DetectionCursor(const QString& path);

    /// Behind which record to go on; from the first one on when none was handed on yet.
    const DetectionId& last() const
    {
        return m_last;
    }

    void moveTo(const DetectionId& id);

private:
    void read();
    [[noreturn]] void fail(int error) const;

    const QString m_path;
    UniqueFd m_file;
    DetectionId m_last;
};
