#include "unit/tvctl/hashlists/liveheap.h"

#ifdef TVFILEMON_SANITIZED
#include <cstddef>

// Of the sanitizers' runtime; the compiler comes without the header that declares it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();

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
