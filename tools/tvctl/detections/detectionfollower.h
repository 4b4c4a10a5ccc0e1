#pragma once

#include "platform/tvcore/virusreport.h"
#include "tvctl/detections/detectionid.h"

#include <QString>
#include <QStringList>
#include <QVector>

/// Hands out the records that are stored after a given one, and goes on whatever becomes of the store
/// meanwhile.
///
/// No record is left out. When the store was set aside or replaced the numbers start again, and so does this:
/// a record may be handed out a second time then, and has the same DetectionId.
class DetectionFollower
{
public:
    explicit DetectionFollower(const DetectionId& after) : m_last(after)
    {
    }

    /// The next records, oldest first; empty when there are none yet or the store cannot be read.
    QVector<VirusReport> next();

    /// What happened to the store since the last call, for the person who looks after it.
    QStringList takeNotices();

private:
    /// Whether the store can be the one that the last record came from. `page` begins at its number.
    bool isSameStore(const QVector<VirusReport>& page, bool& isKnown) const;
    void noteUnreadable();

    DetectionId m_last;
    bool m_isReadable = true;
    QStringList m_notices;
};
