#pragma once

/// Lets the process have as many descriptors as it may allow itself: a service is started with 1024, for the
/// sake of programs that call select, and two are needed for each client of the command port.
void raiseDescriptorLimit();
