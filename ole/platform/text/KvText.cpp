// UTF-8 to and from wide text (UTF-32 on this platform). Anything that is not a Unicode scalar
// value, on either side, becomes U+FFFD, one for each maximal bad piece of a sequence, the way
// browsers and most libraries count them.

#include "ole/platform/text/KvText.h"

#include <cstdint>
#include <new>

namespace {

constexpr char32_t replacement = 0xFFFD;

bool isScalarValue(char32_t c)
{
    return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF);
}

unsigned int encodedLength(char32_t c)
{
    if (!isScalarValue(c)) c = replacement;
    return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
}

char* encode(char32_t c, char* out)
{
    if (!isScalarValue(c)) c = replacement;
    if (c < 0x80) {
        *out++ = char(c);
    } else if (c < 0x800) {
        *out++ = char(0xC0 | (c >> 6));
        *out++ = char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        *out++ = char(0xE0 | (c >> 12));
        *out++ = char(0x80 | ((c >> 6) & 0x3F));
        *out++ = char(0x80 | (c & 0x3F));
    } else {
        *out++ = char(0xF0 | (c >> 18));
        *out++ = char(0x80 | ((c >> 12) & 0x3F));
        *out++ = char(0x80 | ((c >> 6) & 0x3F));
        *out++ = char(0x80 | (c & 0x3F));
    }
    return out;
}

// Decodes one character from [p, end), which is not empty, and moves p past it. A bad
// sequence yields U+FFFD and moves past its longest well-begun prefix (at least one byte).
char32_t decode(const unsigned char*& p, const unsigned char* end)
{
    const unsigned char lead = *p++;
    if (lead < 0x80) return lead;

    unsigned int more;
    char32_t c;
    unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        more = 1;
        c = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        more = 2;
        c = lead & 0x0F;
        if (lead == 0xE0) low = 0xA0;   // no overlong forms
        if (lead == 0xED) high = 0x9F;  // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        more = 3;
        c = lead & 0x07;
        if (lead == 0xF0) low = 0x90;   // no overlong forms
        if (lead == 0xF4) high = 0x8F;  // nothing above U+10FFFF
    } else {
        return replacement;  // a continuation byte, or a lead that can never be valid
    }
    for (unsigned int i = 0; i < more; ++i) {
        if (p == end || *p < low || *p > high) return replacement;
        c = (c << 6) | (*p++ & 0x3F);
        low = 0x80;
        high = 0xBF;
    }
    return c;
}

// Lengths beyond what a string holds are memory that cannot be had.
unsigned int checkedLength(std::uint64_t n)
{
    if (n > 0xFFFFFFFEu) throw std::bad_alloc();
    return unsigned(n);
}

LightweightString<wchar_t> decodeAll(const char* text, std::size_t size)
{
    const auto* begin = reinterpret_cast<const unsigned char*>(text);
    const auto* end = begin + size;
    std::uint64_t count = 0;
    for (const unsigned char* p = begin; p != end; ++count) decode(p, end);

    auto result = LightweightString<wchar_t>::createImpl(checkedLength(count), true);
    wchar_t* out = result.buffer();
    for (const unsigned char* p = begin; p != end;) *out++ = wchar_t(decode(p, end));
    return result;
}

}  // namespace

LightweightString<char> toUTF8(const LightweightString<wchar_t>& text)
{
    const wchar_t* in = text.c_str();
    const unsigned int n = text.size();
    std::uint64_t bytes = 0;
    for (unsigned int i = 0; i < n; ++i) bytes += encodedLength(char32_t(in[i]));

    auto result = LightweightString<char>::createImpl(checkedLength(bytes), true);
    char* out = result.buffer();
    for (unsigned int i = 0; i < n; ++i) out = encode(char32_t(in[i]), out);
    return result;
}

LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text)
{
    return decodeAll(text.c_str(), text.size());
}

LightweightString<wchar_t> fromUTF8(const char* text)
{
    if (!text) return {};
    std::size_t size = 0;
    while (text[size]) ++size;
    return decodeAll(text, size);
}

LightweightString<wchar_t> Kv::WStringFromAscii(const char* text)
{
    if (!text) return {};
    std::size_t size = 0;
    while (text[size]) ++size;
    auto result = LightweightString<wchar_t>::createImpl(checkedLength(size), true);
    wchar_t* out = result.buffer();
    for (std::size_t i = 0; i < size; ++i) out[i] = wchar_t(static_cast<unsigned char>(text[i]));
    return result;
}
