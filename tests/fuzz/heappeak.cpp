#include "fuzz/heappeak.h"

#include <algorithm>
#include <cstdint>

#include <sanitizer/allocator_interface.h>

namespace
{
bool isCounting = false;
std::int64_t live = 0;
std::int64_t peak = 0;

void onAllocated(const volatile void*, std::size_t size)
{
    if (isCounting) {
        live += static_cast<std::int64_t>(size);
        peak = std::max(peak, live);
    }
}

void onFree(const volatile void* block)
{
    if (isCounting) {
        live -= static_cast<std::int64_t>(__sanitizer_get_allocated_size(const_cast<const void*>(block)));
    }
}
} // namespace

HeapPeak::HeapPeak()
{
    static const int installed = __sanitizer_install_malloc_and_free_hooks(onAllocated, onFree);
    live = 0;
    peak = 0;
    isCounting = installed > 0;
}

HeapPeak::~HeapPeak()
{
    isCounting = false;
}

std::size_t HeapPeak::growth() const
{
    return static_cast<std::size_t>(peak);
}
