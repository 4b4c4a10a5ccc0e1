#pragma once

#include "tvctl/hashlists/hashlistformat.h"

#include <string_view>

/// What a list seems to be.
struct DetectedFormat
{
    std::optional<HashListFormat> format;
    /// Why it is no list of bad files, when there is no format.
    QString problem;
};

/// Tells the format of a list by its first text, and where that leaves a doubt, by its name. Pure.
DetectedFormat detectHashListFormat(std::string_view beginning, const QString& fileName);
