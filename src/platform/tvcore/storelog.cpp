#include "platform/tvcore/storelog.h"

Q_LOGGING_CATEGORY(lcTvcore, "tvcore")
