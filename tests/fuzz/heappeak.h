#pragma once

#include <cstddef>

/// The most bytes of the heap that were in use at a time. There is one of them at a time.
class HeapPeak
{
public:
    /// Counts from now on.
    HeapPeak();
    ~HeapPeak();
    HeapPeak(const HeapPeak&) = delete;
    HeapPeak& operator=(const HeapPeak&) = delete;

    /// Above what was in use at the beginning.
    std::size_t growth() const;
};
