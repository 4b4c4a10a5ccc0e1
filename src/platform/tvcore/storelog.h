#pragma once

#include <QLoggingCategory>

/// The library's own log stream, "tvcore".
Q_DECLARE_LOGGING_CATEGORY(lcTvcore)
