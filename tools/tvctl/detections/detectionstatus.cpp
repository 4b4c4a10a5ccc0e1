#include "tvctl/detections/detectionstatus.h"

namespace
{
constexpr int cleaned = 0;
constexpr int reportedOnly = -1;
constexpr int allowedByUser = -2;
} // namespace

DetectionStatus detectionStatusOf(const VirusReport& report)
{
    switch (report.getCleanStatus()) {
    case cleaned:
        return DetectionStatus::Cleaned;
    case reportedOnly:
        return DetectionStatus::Reported;
    case allowedByUser:
        return DetectionStatus::Allowed;
    default:
        return DetectionStatus::Failed;
    }
}

QString detectionStatusWord(DetectionStatus status)
{
    switch (status) {
    case DetectionStatus::Cleaned:
        return QStringLiteral("cleaned");
    case DetectionStatus::Reported:
        return QStringLiteral("reported");
    case DetectionStatus::Allowed:
        return QStringLiteral("allowed");
    default:
        return QStringLiteral("failed");
    }
}
