#pragma once

#include <QString>

#include <sys/types.h>

/// The permissions of a file as chmod takes them: "0640". Whatever else is in `mode` must be masked out.
QString modeText(mode_t mode);
