#pragma once
// Text conversion of the platform: wide text is UTF-32 on this platform, narrow text UTF-8.

#include "ole/misc/LightweightString.h"
#include "ole/platform/os/KvPlatformExport.h"

// Invalid code points become U+FFFD; the null string gives the null string.
KV_EXPORT LightweightString<char> toUTF8(const LightweightString<wchar_t>& text);
// Malformed UTF-8 sequences become U+FFFD; the null string gives the null string.
KV_EXPORT LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text);
KV_EXPORT LightweightString<wchar_t> fromUTF8(const char* text);

namespace Kv {
// Widens narrow text byte by byte: ASCII stays itself, a byte above 0x7F becomes the code point
// of the same value. Null gives the null string.
KV_EXPORT LightweightString<wchar_t> WStringFromAscii(const char* text);
}  // namespace Kv
