#pragma once

#include "tvctl/health/finding.h"
#include "tvctl/health/packagefacts.h"

/// Checks of what the Debian package adds to an installation. Any other installation passes. Pure.
namespace PackageChecks
{
/// The service starts at each boot, its port is guarded, and the timers run.
Finding units(const PackageFacts& facts);

/// The root's links lead to where the package put what changes, and its modes were not widened.
Finding links(const PackageFacts& facts);
} // namespace PackageChecks
