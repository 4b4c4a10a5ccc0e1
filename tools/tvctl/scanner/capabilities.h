#pragma once

/// Gives up, for good, all capabilities of root but the one that reads and searches everything.
///
/// The kernel lets the service look into this process only when that has nothing that the service has not,
/// and the service is confined to a few. To be called before other threads are made. Without capabilities it
/// does nothing. False with errno set when it fails.
bool dropCapabilities();
