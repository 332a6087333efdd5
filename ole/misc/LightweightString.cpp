#include "ole/misc/LightweightString.h"

namespace StringHelpers {

unsigned int copy(wchar_t* dst, const wchar_t* src, unsigned int room)
{
    if (!dst || room == 0) return 0;
    unsigned int n = 0;
    if (src)
        while (n + 1 < room && src[n]) {
            dst[n] = src[n];
            ++n;
        }
    dst[n] = L'\0';
    return n;
}

}  // namespace StringHelpers
