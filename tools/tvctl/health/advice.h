#pragma once

#include <QString>

/// What several checks advise a person to do.
namespace Advice
{
QString restart();
QString waitForFirstUpdate();
QString getSignatures();
} // namespace Advice
