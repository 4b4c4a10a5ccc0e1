#pragma once

#include "platform/tvcore/virusreport.h"

#include <QString>

/// What became of a detected file.
enum class DetectionStatus
{
    Cleaned,
    /// Nothing was done because only reporting was wanted.
    Reported,
    /// The user had allowed it.
    Allowed,
    /// It should have been cleaned and is still there.
    Failed
};

DetectionStatus detectionStatusOf(const VirusReport& report);

/// "cleaned", "reported", "allowed" or "failed": the same word in every form of output.
QString detectionStatusWord(DetectionStatus status);
