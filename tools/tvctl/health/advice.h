#pragma once

#include <QString>

/// What several checks advise a person to do.
namespace Advice
{
QString restart();
} // namespace Advice
