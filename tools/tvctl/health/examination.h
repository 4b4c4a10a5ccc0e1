#pragma once

#include "tvctl/health/finding.h"
#include "tvctl/installation/installation.h"

/// Looks for everything that leaves somebody unprotected without a word.
///
/// Asks the service and nft, for a few seconds each at most; changes nothing but what opening the stores
/// does (a damaged one is set aside). What only root may see is reported as not checked to others.
Findings examine(const Installation& installation);
