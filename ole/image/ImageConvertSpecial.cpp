// The fixed repackings of ImageConverter: 10-bit packed RGB to 8-bit ARGB on the pixel
// iterator's workers, the swap of YUV components, byte reversal, planar RGB to ARGB, and the
// conversions that split a frame into its two fields as they convert.
//
// Pixel layouts in memory order, as these loops treat them (the machine is little-endian):
//   ARGB, 8 bits a component    c0 c1 c2 alpha; as a word alpha<<24 | c2<<16 | c1<<8 | c0
//   ARGB, 16 bits a component   16-bit words w0 w1 w2 alpha
//   RGB, 24 / 48 bits           three bytes / three 16-bit words
//   RGB, 32 bits (10-bit)       one word, components in bits 0-9, 10-19 and 20-29
//   format 37                   three whole planes one after the other, red first; 16-bit
//                               samples at 48 bits a pixel, 8-bit at 24
// Plane 0 of a planar source goes to c2 of 8-bit ARGB but to w0 of 16-bit ARGB: 8-bit output
// is blue first and 16-bit output red first, and every converter here keeps to that.
//
// Most loops walk memory as packed lines and ignore the stride, so a picture with padded lines
// comes out wrong; the ones that read a stride say so. Whatever the descriptors claim, every
// walk stops at the end of the memory behind its pictures.
//
// Inner loops assemble each output word whole and store it once. They run in blocks of a fixed
// count over pointers that are known not to overlap, which lets the compiler turn each block
// into vector code even at its cheapest cost model.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "ole/image/ImageConvert.h"
#include "ole/image/ImageConvertInternal.h"
#include "ole/image/MTPixelIterator.h"
#include "ole/platform/commands/CommandRegistrar.h"
#include "ole/platform/os/KvAssert.h"
#include "ole/platform/settings/KvLog.h"

using namespace Kv::Image;

namespace {

// Sample words read and written in place in pixel memory: any alignment, any aliasing.
typedef std::uint16_t Word16 __attribute__((aligned(1), may_alias));
typedef std::uint32_t Word32 __attribute__((aligned(1), may_alias));
typedef std::uint64_t Word64 __attribute__((aligned(1), may_alias));

constexpr std::size_t kBlock = 16;

// A loop over pointers declared not to overlap is kept out of line: inlined into its caller it
// would lose that promise and, at the cheapest cost model, its vector code. With GCC each is
// also built for AVX-512 and AVX2 beside the x86-64 baseline, and the loader picks the widest
// that the processor runs: on the baseline's 16-byte vectors these loops are bound by
// arithmetic, on 64-byte ones one core already meets the memory's bandwidth. The choice is
// made by a resolver that runs while the library is being loaded, before ThreadSanitizer's
// runtime is up, so builds for it keep the baseline alone.
#if defined(__x86_64__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__)
#define KV_PIXEL_KERNEL __attribute__((noinline, target_clones("arch=x86-64-v4", "avx2", "default")))
#else
#define KV_PIXEL_KERNEL __attribute__((noinline))
#endif

// each(i) for i from 0 to n - 1: in blocks of a fixed count, then the rest one by one.
template <class Each>
inline __attribute__((always_inline)) void inBlocks(std::size_t n, Each each)
{
    std::size_t i = 0;
    for (; i + kBlock <= n; i += kBlock)
        for (std::size_t k = 0; k < kBlock; ++k) each(i + k);
    for (; i < n; ++i) each(i);
}

inline std::uintptr_t addressOf(const void* p) noexcept
{
    return reinterpret_cast<std::uintptr_t>(p);
}

// `base` moved by a byte count, as an address; it is checked against the memory before use.
inline const unsigned char* offsetAddress(const unsigned char* base, std::int64_t bytes) noexcept
{
    return reinterpret_cast<const unsigned char*>(addressOf(base) + static_cast<std::uintptr_t>(bytes));
}

inline bool apart(const void* a, std::size_t aBytes, const void* b, std::size_t bBytes) noexcept
{
    return addressOf(a) + aBytes <= addressOf(b) || addressOf(b) + bBytes <= addressOf(a);
}

// The memory behind a picture, taken when the picture is handed in: the bytes stay alive and
// measurable even if the picture is given new memory meanwhile (an output that shares the
// input's rep). A host's picture that is not a Surface tells only its descriptors, and they
// are taken at their word.
class PixelMemory {
public:
    explicit PixelMemory(const Base& image)
    {
        if (const auto* surface = dynamic_cast<const Surface*>(&image)) {
            holder_ = surface->getMemHolder();
            if (holder_) {
                begin_ = holder_->getBuffer();
                size_ = holder_->getSize();
            }
        } else {
            begin_ = image.getDataPtr();
            size_ = std::size_t(image.getStride()) * image.getHeight();
        }
        if (!begin_) size_ = 0;
    }

    // Bytes from p to the end of the memory; 0 when p lies outside it.
    std::size_t from(const void* p) const noexcept
    {
        const std::uintptr_t at = addressOf(p), begin = addressOf(begin_);
        if (at < begin || at - begin >= size_) return 0;
        return size_ - (at - begin);
    }

private:
    MemHolderPtr holder_;
    const unsigned char* begin_ = nullptr;
    std::size_t size_ = 0;
};

bool hasData(const Base& image)
{
    if (const auto* surface = dynamic_cast<const Surface*>(&image)) return surface->getRawDataPtr() != nullptr;
    return image.getDataPtr() != nullptr;
}

inline std::size_t atMost(std::uint64_t a, std::size_t b) noexcept
{
    return std::size_t(std::min<std::uint64_t>(a, b));
}

// --- 32-bit units ----------------------------------------------------------------------------

inline std::uint32_t tenToEight(std::uint32_t w) noexcept
{
    return ((w >> 2) & 0xFFu) | (((w >> 12) & 0xFFu) << 8) | (((w >> 22) & 0xFFu) << 16) | 0xFF000000u;
}

// b0 b1 b2 b3 -> b1 b0 b3 b2.
inline std::uint32_t swapPairs(std::uint32_t w) noexcept
{
    return ((w & 0x00FF00FFu) << 8) | ((w >> 8) & 0x00FF00FFu);
}

template <class Map>
KV_PIXEL_KERNEL void mapUnitsApart(const unsigned char* __restrict in, unsigned char* __restrict out, std::size_t n, Map map)
{
    const Word32* s = reinterpret_cast<const Word32*>(in);
    Word32* d = reinterpret_cast<Word32*>(out);
    inBlocks(n, [&](std::size_t i) { d[i] = map(s[i]); });
}

template <class Map>
KV_PIXEL_KERNEL void mapUnitsInPlace(unsigned char* __restrict p, std::size_t n, Map map)
{
    Word32* d = reinterpret_cast<Word32*>(p);
    inBlocks(n, [&](std::size_t i) { d[i] = map(d[i]); });
}

// n 32-bit units of `in` through `map` into `out`. Runs that partly overlap go one unit at a
// time, in memory order.
template <class Map>
void mapUnits(const unsigned char* in, unsigned char* out, std::size_t n, Map map)
{
    if (in == out) {
        mapUnitsInPlace(out, n, map);
    } else if (apart(in, n * 4, out, n * 4)) {
        mapUnitsApart(in, out, n, map);
    } else {
        const Word32* s = reinterpret_cast<const Word32*>(in);
        Word32* d = reinterpret_cast<Word32*>(out);
        for (std::size_t i = 0; i < n; ++i) d[i] = map(s[i]);
    }
}

inline std::uint16_t swapBytes(std::uint16_t v) noexcept
{
    return std::uint16_t((v >> 8) | (v << 8));
}

// b0 b1 b2 b3 -> b3 b2 b1 b0, as the two 16-bit halves exchanged and each byte-swapped: the
// compiler makes vector shuffles of that, where a 32-bit byte swap stays scalar on the
// baseline instruction set.
KV_PIXEL_KERNEL void reverseUnitsApart(const unsigned char* __restrict in, unsigned char* __restrict out, std::size_t n)
{
    const Word16* s = reinterpret_cast<const Word16*>(in);
    Word16* d = reinterpret_cast<Word16*>(out);
    inBlocks(n, [&](std::size_t i) {
        const std::uint16_t low = s[2 * i], high = s[2 * i + 1];
        d[2 * i] = swapBytes(high);
        d[2 * i + 1] = swapBytes(low);
    });
}

KV_PIXEL_KERNEL void reverseUnitsInPlace(unsigned char* __restrict p, std::size_t n)
{
    Word16* d = reinterpret_cast<Word16*>(p);
    inBlocks(n, [&](std::size_t i) {
        const std::uint16_t low = d[2 * i], high = d[2 * i + 1];
        d[2 * i] = swapBytes(high);
        d[2 * i + 1] = swapBytes(low);
    });
}

void reverseUnits(const unsigned char* in, unsigned char* out, std::size_t n)
{
    if (in == out) {
        reverseUnitsInPlace(out, n);
    } else if (apart(in, n * 4, out, n * 4)) {
        reverseUnitsApart(in, out, n);
    } else {
        const Word32* s = reinterpret_cast<const Word32*>(in);
        Word32* d = reinterpret_cast<Word32*>(out);
        for (std::size_t i = 0; i < n; ++i) d[i] = __builtin_bswap32(s[i]);
    }
}

// --- Interleaved RGB lines to ARGB ------------------------------------------------------------
// Three samples a pixel do not map onto vector lanes without byte shuffles, so these stay
// scalar; they still build each output word whole.

// 24-bit c0 c1 c2 -> c0 c1 c2 255.
KV_PIXEL_KERNEL void rgb8ToArgb8(const unsigned char* __restrict in, unsigned char* __restrict out, std::size_t n)
{
    Word32* d = reinterpret_cast<Word32*>(out);
    for (std::size_t i = 0; i < n; ++i, in += 3)
        d[i] = 0xFF000000u | in[0] | (std::uint32_t(in[1]) << 8) | (std::uint32_t(in[2]) << 16);
}

// 48-bit w0 w1 w2 -> the high bytes h0 h1 h2 255.
KV_PIXEL_KERNEL void rgb16ToArgb8(const unsigned char* __restrict in, unsigned char* __restrict out, std::size_t n)
{
    Word32* d = reinterpret_cast<Word32*>(out);
    for (std::size_t i = 0; i < n; ++i, in += 6)
        d[i] = 0xFF000000u | in[1] | (std::uint32_t(in[3]) << 8) | (std::uint32_t(in[5]) << 16);
}

// 48-bit w0 w1 w2 -> w2 w1 w0 65535.
KV_PIXEL_KERNEL void rgb16ToArgb16(const unsigned char* __restrict in, unsigned char* __restrict out, std::size_t n)
{
    const Word16* s = reinterpret_cast<const Word16*>(in);
    Word64* d = reinterpret_cast<Word64*>(out);
    for (std::size_t i = 0; i < n; ++i, s += 3)
        d[i] = 0xFFFF000000000000ull | s[2] | (std::uint64_t(s[1]) << 16) | (std::uint64_t(s[0]) << 32);
}

// --- Planes to ARGB ----------------------------------------------------------------------------

struct Planes {
    const unsigned char* p[3];
};

// 16-bit planes, high bytes -> 255 p0 p1 p2 read as a word: p2 first in memory.
KV_PIXEL_KERNEL void planar16ToArgb8(const unsigned char* __restrict a, const unsigned char* __restrict b,
                     const unsigned char* __restrict c, unsigned char* __restrict out, std::size_t n)
{
    const Word16* p0 = reinterpret_cast<const Word16*>(a);
    const Word16* p1 = reinterpret_cast<const Word16*>(b);
    const Word16* p2 = reinterpret_cast<const Word16*>(c);
    Word32* d = reinterpret_cast<Word32*>(out);
    inBlocks(n, [&](std::size_t i) {
        d[i] = 0xFF000000u | std::uint32_t(p2[i] >> 8) | (std::uint32_t(p1[i] >> 8) << 8) |
               (std::uint32_t(p0[i] >> 8) << 16);
    });
}

// 16-bit planes -> words p0 p1 p2 65535.
KV_PIXEL_KERNEL void planar16ToArgb16(const unsigned char* __restrict a, const unsigned char* __restrict b,
                      const unsigned char* __restrict c, unsigned char* __restrict out, std::size_t n)
{
    const Word16* p0 = reinterpret_cast<const Word16*>(a);
    const Word16* p1 = reinterpret_cast<const Word16*>(b);
    const Word16* p2 = reinterpret_cast<const Word16*>(c);
    Word64* d = reinterpret_cast<Word64*>(out);
    inBlocks(n, [&](std::size_t i) {
        d[i] = 0xFFFF000000000000ull | p0[i] | (std::uint64_t(p1[i]) << 16) | (std::uint64_t(p2[i]) << 32);
    });
}

// 8-bit planes -> 255 p0 p1 p2 read as a word.
KV_PIXEL_KERNEL void planar8ToArgb8(const unsigned char* __restrict p0, const unsigned char* __restrict p1,
                    const unsigned char* __restrict p2, unsigned char* __restrict out, std::size_t n)
{
    Word32* d = reinterpret_cast<Word32*>(out);
    inBlocks(n, [&](std::size_t i) {
        d[i] = 0xFF000000u | p2[i] | (std::uint32_t(p1[i]) << 8) | (std::uint32_t(p0[i]) << 16);
    });
}

enum class PlanarOutput { Planar16ToArgb8, Planar16ToArgb16, Planar8ToArgb8 };

// n pixels from three planes into `out`. When the output shares memory with a plane (a caller
// that handed one picture as both), the planes' samples are copied aside first, so that the
// result is as if the input had been read whole before the output was written.
void planarRun(PlanarOutput kind, Planes in, unsigned char* out, std::size_t n)
{
    const std::size_t sampleBytes = kind == PlanarOutput::Planar8ToArgb8 ? 1 : 2;
    const std::size_t outBytes = kind == PlanarOutput::Planar16ToArgb16 ? 8 : 4;
    std::vector<unsigned char> aside;
    if (!apart(out, n * outBytes, in.p[0], n * sampleBytes) || !apart(out, n * outBytes, in.p[1], n * sampleBytes) ||
        !apart(out, n * outBytes, in.p[2], n * sampleBytes)) {
        aside.resize(3 * n * sampleBytes);
        for (int k = 0; k < 3; ++k) {
            std::memcpy(aside.data() + k * n * sampleBytes, in.p[k], n * sampleBytes);
            in.p[k] = aside.data() + k * n * sampleBytes;
        }
    }
    switch (kind) {
    case PlanarOutput::Planar16ToArgb8: planar16ToArgb8(in.p[0], in.p[1], in.p[2], out, n); break;
    case PlanarOutput::Planar16ToArgb16: planar16ToArgb16(in.p[0], in.p[1], in.p[2], out, n); break;
    case PlanarOutput::Planar8ToArgb8: planar8ToArgb8(in.p[0], in.p[1], in.p[2], out, n); break;
    }
}

// The three planes of a planar picture: each one width * height * bitsPerPixel / 24 bytes
// after the one before, the product taken in 32 bits and the division last.
Planes planesOf(const Base& in)
{
    const unsigned int plane = in.getWidth() * in.getHeight() * in.getBitsPerPixel() / 24;
    const unsigned char* first = in.getDataPtr();
    return {{first, offsetAddress(first, plane), offsetAddress(first, 2u * plane)}};
}

// How many samples of `sampleBytes` each all three planes hold from their starts on.
std::size_t samplesInMemory(const PixelMemory& memory, const Planes& planes, std::size_t sampleBytes)
{
    std::size_t n = memory.from(planes.p[0]);
    n = std::min(n, memory.from(planes.p[1]));
    n = std::min(n, memory.from(planes.p[2]));
    return n / sampleBytes;
}

// --- Splitting a frame into fields while converting --------------------------------------------

using LineConverter = void (*)(const unsigned char* __restrict, unsigned char* __restrict, std::size_t);

// Makes out1 and out2 afresh, half the height of src (an odd last line is dropped), then walks
// src: top-down from its first line, the even lines to out1 and the odd to out2; bottom-up from
// its last line, that one to out1, the one above to out2, and so on, stepping back
// `backStrides` strides from where each line's bytes end. Reads the stride, as 16 bits.
bool splitInterleaved(const Surface& src, Surface& out1, Surface& out2, unsigned short outBitsPerComponent,
                      std::size_t inPixelBytes, std::size_t outPixelBytes, int backStrides,
                      LineConverter convert)
{
    const unsigned int width = src.getWidth();
    const unsigned int height = src.getHeight();
    const unsigned int fieldHeight = height >> 1;
    const bool topDown = src.getIsTopDown();
    const PixelMemory from(src);
    const unsigned char* const data = src.getDataPtr();

    out1 = Surface(width, fieldHeight, ARGB, true, outBitsPerComponent, 0, 0);
    out2 = Surface(width, fieldHeight, ARGB, true, outBitsPerComponent, 0, 0);
    setOutputFieldsMetadata(src, out1, out2);

    const unsigned short srcStride = static_cast<unsigned short>(src.getStride());
    KV_ASSERT(srcStride == src.getWidth() * src.getBitsPerPixel() / 8);

    const std::int64_t inLine = std::int64_t(width) * std::int64_t(inPixelBytes);
    const std::size_t outLine = std::size_t(width) * outPixelBytes;
    const std::int64_t afterLine = topDown ? std::int64_t(srcStride) - inLine : -std::int64_t(backStrides) * srcStride;
    std::int64_t at = topDown ? 0 : (std::int64_t(height) - 1) * srcStride;

    const PixelMemory to[2] = {PixelMemory(out1), PixelMemory(out2)};
    unsigned char* out[2] = {out1.getDataPtr(), out2.getDataPtr()};
    for (unsigned int pair = 0; pair < fieldHeight; ++pair) {
        for (int field = 0; field < 2; ++field) {
            const unsigned char* line = offsetAddress(data, at);
            if (from.from(line) < std::size_t(inLine) || to[field].from(out[field]) < outLine) return true;
            convert(line, out[field], width);
            out[field] += outLine;
            at += inLine + afterLine;
        }
    }
    return true;
}

// --- The diagnostic ------------------------------------------------------------------------------

// 16-bit samples a, r, g, b.
struct Argb16Pixel {
    static constexpr std::size_t bytes = 8;
    static void read(const unsigned char* p, double sample[4])
    {
        const Word16* w = reinterpret_cast<const Word16*>(p);
        for (int k = 0; k < 4; ++k) sample[k] = w[k];
    }
};

// 8-bit b, g, r, a from samples a, r, g, b scaled to 0..1.
struct Bgra8Pixel {
    static constexpr std::size_t bytes = 4;
    static void write(unsigned char* p, const double unit[4])
    {
        const int order[4] = {3, 2, 1, 0};
        for (int k = 0; k < 4; ++k) p[k] = static_cast<unsigned char>(unit[order[k]] * 255.0 + 0.5);
    }
};

// Converts `outBytes` bytes' worth of output pixels, each from one input pixel, as far as both
// memories reach.
template <class In, class Out>
void convertPixels(const unsigned char* in, const PixelMemory& inMemory, unsigned char* out,
                   const PixelMemory& outMemory, std::size_t outBytes)
{
    std::size_t pixels = outBytes / Out::bytes;
    pixels = std::min(pixels, inMemory.from(in) / In::bytes);
    pixels = std::min(pixels, outMemory.from(out) / Out::bytes);
    for (std::size_t i = 0; i < pixels; ++i, in += In::bytes, out += Out::bytes) {
        double sample[4], unit[4];
        In::read(in, sample);
        for (int k = 0; k < 4; ++k) unit[k] = sample[k] / 65535.0;
        Out::write(out, unit);
    }
}

const CommandRegistrar templatedPixelsTestCommand(
    "Templated Pixels Test", &ImageConverter::templatedPixelsTest, UIString("Templated Pixels Test"),
    UIString("Converts a PAL frame of 16-bit ARGB samples to 8-bit BGRA through the templated pixel loop"),
    eCmdScopeDiagnostic, MapItem());

}  // namespace

// -------------------------------------------------------------------------------------------------

int KV10_to_KV8_lp(int, int, int, int width, unsigned char* src, unsigned char* dst)
{
    if (width > 0) mapUnits(src, dst, std::size_t(width), [](std::uint32_t w) { return tenToEight(w); });
    return 0;
}

void ImageConverter::KV10_to_KV8(const Surface& src, Surface& dst)
{
    KV_ASSERT(( src.getDataFormat() == Kv::Image::RGB ) && ( src.getBitsPerPixel() == 32 ));
    dst.init(src.getWidth(), src.getHeight(), ARGB, true, 0, 0, 0);
    MTPixelIterator::iterate(0, KV10_to_KV8_lp, src, dst, nullptr);
}

Surface ImageConverter::reorderComponents(Surface& src, bool inPlace)
{
    Format target;
    switch (src.getDataFormat()) {
    case YUY2:
    case M101:
    case M102:
        target = UYVY;
        break;
    case UYVY:
        target = YUY2;
        break;
    default:
        KV_ASSERT(src.getDataFormat() == UYVY);
        target = YUY2;
        break;
    }

    const PixelMemory from(src);
    const unsigned char* in = src.getDataPtr();
    Surface result;
    if (inPlace)
        result = src;
    else
        result.init(src.getWidth(), src.getHeight(), src.getDataFormat(), true, src.getBitsPerComponent(),
                    src.getBitsPerPixel(), static_cast<unsigned short>(src.getStride()));

    // Packed: width * height / 2 groups of four bytes from the first line.
    unsigned char* out = result.getDataPtr();
    const std::uint64_t groups = (std::uint64_t(src.getWidth()) * src.getHeight()) >> 1;
    const std::size_t n = atMost(groups, std::min(from.from(in), PixelMemory(result).from(out)) / 4);
    mapUnits(in, out, n, [](std::uint32_t w) { return swapPairs(w); });
    result.setDataFormat(target);
    return result;
}

void ImageConverter::reversePixelBytes(const Base& in, Base& out)
{
    KV_ASSERT(( ( in.getDataFormat() == BGRA ) && ( out.getDataFormat() == ARGB ) ) || ( ( out.getDataFormat() == BGRA ) && ( in.getDataFormat() == ARGB ) ) || ( ( out.getDataFormat() == YVYU ) && ( in.getDataFormat() == UYVY ) ));
    reversePixelBytesSimpleC(in, out);
}

// Packed; width * height units of four bytes, also for 16-bit layouts where two pixels share a
// unit, so there the walk would cover twice the picture: it stops at the end of either memory.
void ImageConverter::reversePixelBytesSimpleC(const Base& in, Base& out)
{
    const unsigned char* from = in.getDataPtr();
    unsigned char* to = out.getDataPtr();
    const std::uint64_t units = std::uint64_t(in.getWidth()) * in.getHeight();
    const std::size_t n = atMost(units, std::min(PixelMemory(in).from(from), PixelMemory(out).from(to)) / 4);
    reverseUnits(from, to, n);
}

Surface ImageConverter::createReversedBytesImage(const Base& src)
{
    KV_ASSERT(( src.getBitsPerPixel() == 16 || src.getBitsPerPixel() == 32 ) && src.getBitsPerComponent() == 8);
    Format format;
    switch (src.getDataFormat()) {
    case ARGB:
        format = BGRA;
        break;
    case UYVY:
        format = YVYU;
        break;
    case BGRA:
        format = ARGB;
        break;
    default:
        KV_ASSERT(src.getDataFormat() == ARGB);
        format = BGRA;
        break;
    }
    Surface result(src.getWidth(), src.getHeight(), format, true, 0, 0, 0);
    reversePixelBytes(src, result);
    return result;
}

// Top-down sources are read packed. Bottom-up ones start at the last line and step back twice
// the stride (read as 16 bits) from where each line's bytes end, which is right only for a
// stride of three times the width.
bool ImageConverter::RGBToARGB(const Surface& src, Surface& dst, unsigned short)
{
    const unsigned int width = src.getWidth();
    const unsigned int height = src.getHeight();
    const bool topDown = src.getIsTopDown();
    const unsigned int stride = static_cast<unsigned short>(src.getStride());
    const PixelMemory from(src);
    const unsigned char* in = src.getDataPtr();

    dst.init(width, height, ARGB, true, src.getBitsPerComponent(), src.getBitsPerPixel(), 0);
    const PixelMemory to(dst);
    unsigned char* out = dst.getDataPtr();
    const std::size_t inLine = std::size_t(width) * 3;
    const std::size_t outLine = std::size_t(width) * 4;

    if (topDown) {
        const std::uint64_t pixels = std::uint64_t(width) * height;
        const std::size_t n = atMost(pixels, std::min(from.from(in) / 3, to.from(out) / 4));
        if (n != 0 && apart(in, n * 3, out, n * 4)) {
            rgb8ToArgb8(in, out, n);
        } else if (n != 0) {
            const std::vector<unsigned char> aside(in, in + n * 3);
            rgb8ToArgb8(aside.data(), out, n);
        }
    } else {
        std::int64_t at = (std::int64_t(height) - 1) * stride;
        std::vector<unsigned char> aside;
        for (unsigned int line = 0; line < height; ++line) {
            const unsigned char* first = offsetAddress(in, at);
            if (from.from(first) < inLine || to.from(out) < outLine) break;
            if (!apart(first, inLine, out, outLine)) {
                aside.assign(first, first + inLine);
                first = aside.data();
            }
            rgb8ToArgb8(first, out, width);
            out += outLine;
            at += std::int64_t(inLine) - 2 * std::int64_t(stride);
        }
    }
    // The source's flag when it is top-down, the opposite when not: true either way.
    dst.setIsTopDown(true);
    return true;
}

// Packed planes, width * height samples each.
bool ImageConverter::RGBPlanar16ToARGB(const Base& in, Base& out, unsigned short outputBitDepth)
{
    if (!hasData(out)) {
        LogBoth("RGBPlanar16ToARGB::Out of memory\n");
        return false;
    }
    if (!in.getIsTopDown()) {
        KV_ASSERT(false);
        return true;
    }
    const PixelMemory from(in), to(out);
    const Planes planes = planesOf(in);
    unsigned char* const first = out.getDataPtr();
    const std::uint64_t pixels = std::uint64_t(in.getWidth()) * in.getHeight();
    const std::size_t samples = samplesInMemory(from, planes, 2);
    if (outputBitDepth == 8) {
        planarRun(PlanarOutput::Planar16ToArgb8, planes, first, atMost(pixels, std::min(samples, to.from(first) / 4)));
    } else {
        KV_ASSERT(outputBitDepth == 16);
        planarRun(PlanarOutput::Planar16ToArgb16, planes, first, atMost(pixels, std::min(samples, to.from(first) / 8)));
    }
    out.setIsTopDown(in.getIsTopDown());
    return true;
}

// Packed planes, width * height samples each; only 8-bit output from a top-down picture.
bool ImageConverter::RGBPlanar8ToARGB(const Base& in, Base& out, unsigned short outputBitDepth)
{
    if (!hasData(out)) {
        LogBoth("RGBPlanar8ToARGB::Out of memory\n");
        return false;
    }
    if (in.getIsTopDown() && outputBitDepth == 8) {
        const PixelMemory from(in), to(out);
        const Planes planes = planesOf(in);
        unsigned char* const first = out.getDataPtr();
        const std::uint64_t pixels = std::uint64_t(in.getWidth()) * in.getHeight();
        const std::size_t n = atMost(pixels, std::min(samplesInMemory(from, planes, 1), to.from(first) / 4));
        planarRun(PlanarOutput::Planar8ToArgb8, planes, first, n);
        out.setIsTopDown(in.getIsTopDown());
        return true;
    }
    KV_ASSERT(false);
    return true;
}

void setOutputFieldsMetadata(const Surface& src, Surface& out1, Surface& out2)
{
    static_cast<Video::Interface&>(out1) = static_cast<const Video::Interface&>(src);
    static_cast<Video::Interface&>(out2) = static_cast<const Video::Interface&>(src);
    static_cast<VideoSample::Interface&>(out1) = static_cast<const VideoSample::Interface&>(src);
    static_cast<VideoSample::Interface&>(out2) = static_cast<const VideoSample::Interface&>(src);

    // The NTSC rasters are the only test of field order; the frame's own scan mode is not read.
    const unsigned int height = src.getHeight();
    const bool upperIsSecond = height == 480 || height == 486;
    const ScanMode mode = upperIsSecond ? SecondFieldTop : FirstFieldTop;
    out1.setScanMode(mode);
    out2.setScanMode(mode);
    out1.setPolarity(upperIsSecond ? SecondField : FirstField);
    out2.setPolarity(upperIsSecond ? FirstField : SecondField);
    for (Surface* field : {&out1, &out2}) {
        field->setIsTopDown(true);
        field->setTransparency(Opaque);
    }
}

bool ImageConverter::deinterleaveRGB8ToARGB8(const Surface& src, Surface& out1, Surface& out2)
{
    return splitInterleaved(src, out1, out2, 0, 3, 4, 2, rgb8ToArgb8);
}

bool ImageConverter::deinterleaveRGB16ToARGB8(const Surface& src, Surface& out1, Surface& out2)
{
    return splitInterleaved(src, out1, out2, 0, 6, 4, 2, rgb16ToArgb8);
}

// Bottom-up sources step back four strides a line, skipping lines: hand this function top-down
// pictures.
bool ImageConverter::deinterleaveRGB16ToARGB16(const Surface& src, Surface& out1, Surface& out2)
{
    return splitInterleaved(src, out1, out2, 16, 6, 8, 4, rgb16ToArgb16);
}

// Packed 16-bit planes. The lines are dealt by a counter that falls from height - 1 to 0: odd
// to out2, even to out1. So at an even height the first line goes to out2, unlike the
// interleaved splits; at an odd height out1 is dealt one line more than it holds, and that
// line is left out.
bool ImageConverter::deinterleavePlanarRGBToARGB(const Surface& src, Surface& out1, Surface& out2,
                                                 unsigned short outputBitDepth)
{
    const unsigned int width = src.getWidth();
    const unsigned int height = src.getHeight();
    const bool topDown = src.getIsTopDown();
    const PixelMemory from(src);
    const Planes planes = planesOf(src);

    out1.init(width, height >> 1, ARGB, true, outputBitDepth, 0, 0);
    out2.init(width, height >> 1, ARGB, true, outputBitDepth, 0, 0);
    setOutputFieldsMetadata(src, out1, out2);
    if (!topDown) {
        KV_ASSERT(false);
        return true;
    }

    PlanarOutput kind = PlanarOutput::Planar16ToArgb8;
    std::size_t outPixelBytes = 4;
    if (outputBitDepth != 8) {
        KV_ASSERT(outputBitDepth == 16);
        kind = PlanarOutput::Planar16ToArgb16;
        outPixelBytes = 8;
    }
    const std::size_t outLine = std::size_t(width) * outPixelBytes;
    const PixelMemory to[2] = {PixelMemory(out1), PixelMemory(out2)};
    unsigned char* out[2] = {out1.getDataPtr(), out2.getDataPtr()};

    for (unsigned int counter = height; counter-- > 0;) {
        const std::int64_t sample = std::int64_t(height - 1 - counter) * width;
        const Planes line = {{offsetAddress(planes.p[0], 2 * sample), offsetAddress(planes.p[1], 2 * sample),
                              offsetAddress(planes.p[2], 2 * sample)}};
        const int field = (counter & 1) ? 1 : 0;
        if (samplesInMemory(from, line, 2) < width || to[field].from(out[field]) < outLine) break;
        planarRun(kind, line, out[field], width);
        out[field] += outLine;
    }
    return true;
}

// Two PAL frames in 8-bit ARGB; the second is filled from the first read as 16-bit samples a,
// r, g, b, eight bytes a pixel from a picture made with four, so only the first half of the
// output is reached before the source's memory ends. The source is cleared first, so that
// every run reads the same values.
void ImageConverter::templatedPixelsTest()
{
    Surface source(720, 576, ARGB, true, 0, 0, 0);
    Surface target(720, 576, ARGB, true, 0, 0, 0);
    const PixelMemory from(source), to(target);
    if (unsigned char* data = source.getDataPtr()) std::memset(data, 0, from.from(data));
    const std::size_t outBytes = std::size_t(target.getWidth()) * target.getHeight() * 4;
    convertPixels<Argb16Pixel, Bgra8Pixel>(source.getDataPtr(), from, target.getDataPtr(), to, outBytes);
}
