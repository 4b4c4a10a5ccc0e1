#include "unit/tvctl/hashlists/liveheap.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/allocator_interface.h>

qint64 liveHeapSize()
{
    return static_cast<qint64>(__sanitizer_get_current_allocated_bytes());
}
#else
#include <malloc.h>

qint64 liveHeapSize()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<qint64>(info.uordblks) + static_cast<qint64>(info.hblkhd);
}
#endif
