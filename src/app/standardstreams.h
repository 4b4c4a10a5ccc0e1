#pragma once

/// Opens "/dev/null" for each of standard input, output and error that the process was started without.
///
/// Otherwise the next file opened, a database or a quarantine copy, would take the number, and what is
/// printed to the stream would go into it. To be called first of all.
void openMissingStandardStreams();
