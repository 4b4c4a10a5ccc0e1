#pragma once

/// Drops what a command that hands files to the service must not have; see `dropCapabilities`. Throws
/// ToolError when that fails.
void requireDroppedCapabilities();
