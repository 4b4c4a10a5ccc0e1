#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the program unless `holds`, as what a sanitizer finds does; `property` is what should have been.
inline void require(bool holds, const char* property)
{
    if (!holds) {
        std::fprintf(stderr, "this does not hold: %s\n", property);
        std::abort();
    }
}
