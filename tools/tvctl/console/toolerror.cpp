#include "tvctl/console/toolerror.h"

ToolError::ToolError(const QString& message) : std::runtime_error(message.toStdString()), m_message(message)
{
}
