#pragma once

#include "platform/tvcore/virusreport.h"
#include "tvctl/detections/detectionfilter.h"
#include "tvctl/installation/installation.h"

#include <QDateTime>
#include <QVector>

/// Reads the detection records of a period, [from, to), of which an invalid time leaves an end open, in
/// pieces: there may be millions.
///
/// Throws ToolError when the store cannot be read.
class DetectionReader
{
public:
    DetectionReader(const Installation& installation, const QDateTime& from, const QDateTime& to = {});

    /// The records that follow those of the last call, oldest first; empty when there are no more.
    QVector<VirusReport> next();

    /// The `limit` records that were stored last and that `filter` takes, oldest first. Independent of
    /// `next`.
    QVector<VirusReport> newest(int limit, const DetectionFilter& filter = {}) const;

    qint64 count() const;

private:
    const Installation m_installation;
    const QDateTime m_from;
    const QDateTime m_to;
    qint64 m_lastId = 0;
};
