#pragma once

/// Gives this process the lowest priority that still gets on, for processor and disk, so that nobody notices
/// it. What the system refuses stays as it is.
void goToBackground();
