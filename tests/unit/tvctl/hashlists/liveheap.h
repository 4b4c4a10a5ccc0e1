#pragma once

#include <QtGlobal>

/// How many bytes of the heap are in use now; freed ones do not count. Also right under the sanitizers, which
/// keep freed memory back, so that the size of the process would tell nothing.
qint64 liveHeapSize();
