// Drives the splitter with every flag combination on both string types. The first byte picks
// the separator, the rest is the text; the wide run reads the same bytes as characters, and
// also as whole 32-bit characters.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "ole/misc/KvSplit.h"

namespace {

template <class S>
void checkPieces(const S& text, const typename Kv::StringToVec<S>::VecT& out, unsigned int flags)
{
    // Every piece is a clipped region of the text: no piece is longer than the text, and
    // without separators kept the pieces never hold more characters than the text.
    unsigned long total = 0;
    for (const S& piece : out) {
        if (piece.size() > text.size()) std::abort();
        total += piece.size();
    }
    if (!(flags & Kv::SplitKeepSeparator) && total > text.size()) std::abort();
    if (out.empty()) std::abort();
}

template <class S, class Char>
void run(const Char* text, unsigned int length, Char separator)
{
    const S s(text, length);
    for (unsigned int flags = 0; flags < 8; ++flags) {
        typename Kv::StringToVec<S>::VecT out;
        const unsigned int n = Kv::splitIf(s, Kv::IsMatchingChar<Char>(separator), out, flags);
        if (n != out.size()) std::abort();
        checkPieces(s, out, flags);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size > 4096) return 0;
    const char separator = char(data[0]);
    const char* text = reinterpret_cast<const char*>(data + 1);
    const unsigned int length = unsigned(size - 1);
    run<LightweightString<char>>(text, length, separator);

    wchar_t wide[4096];
    for (unsigned int i = 0; i < length; ++i) wide[i] = wchar_t(static_cast<unsigned char>(text[i]));
    run<LightweightString<wchar_t>>(wide, length, wchar_t(static_cast<unsigned char>(separator)));

    const unsigned int wideLength = length / 4;
    std::memcpy(wide, text, wideLength * 4);
    run<LightweightString<wchar_t>>(wide, wideLength, wchar_t(L'/'));
    return 0;
}
