#include "ole/platform/os/KvAssert.h"

#include <cstdio>

// Flushed at once, so that the print stands in its place among the program's other output
// even when the process dies soon after.
void kvAssertionFailed(const char* condition, const char* place)
{
    std::printf("assertion failed %s at %s\n", condition ? condition : "", place ? place : "");
    std::fflush(stdout);
}
