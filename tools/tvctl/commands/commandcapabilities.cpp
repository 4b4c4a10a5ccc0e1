#include "tvctl/commands/commandcapabilities.h"

#include "tvctl/console/toolerror.h"
#include "tvctl/scanner/capabilities.h"

#include <cerrno>

void requireDroppedCapabilities()
{
    if (!dropCapabilities()) {
        const int error = errno;
        throw ToolError(
            QStringLiteral("cannot give up the capabilities of root: %1").arg(qt_error_string(error)));
    }
}
