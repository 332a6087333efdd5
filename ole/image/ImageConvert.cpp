// ImageConverter's dispatchers: convert, reorder with its line templates, and frameToFrame.
//
// The walks go by the descriptors as the editor's pictures have always been walked: most treat
// lines as packed and never read the stride, and a picture with padded lines comes out wrong
// through them. Each walk also stays inside the memory of both pictures (ImageConvertWalk.h):
// it does the pixels that lie in memory and stops at the edge.

#include "ole/image/ImageConvert.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <tmmintrin.h>
#endif

#include "ole/image/ImageConvertWalk.h"
#include "ole/image/iImageConvert.h"
#include "ole/platform/os/KvAssert.h"
#include "ole/platform/settings/TimedTaskManager.h"

using namespace Kv::Image;
namespace W = Kv::Image::Walk;

namespace {

// Times one piece of work on the host's "Image" task, if it gives us one, and ends it on
// every way out.
class ImageTiming {
public:
    explicit ImageTiming(const char* label) : task_(TimedTaskManager::getTimedTask(taskName()))
    {
        if (task_) task_->begin(label);
    }
    ~ImageTiming()
    {
        if (!task_) return;
        try {
            task_->end();
        } catch (...) {
            // A stopwatch must not turn a finished conversion into a failure.
        }
    }
    ImageTiming(const ImageTiming&) = delete;
    ImageTiming& operator=(const ImageTiming&) = delete;

private:
    static const LightweightString<char>& taskName()
    {
        static const LightweightString<char> name("Image");
        return name;
    }
    Kv::Ptr<TimedTaskBase> task_;
};

std::uint32_t load32(const unsigned char* p)
{
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

void store32(unsigned char* p, std::uint32_t v) { std::memcpy(p, &v, 4); }

template <class T>
T loadSample(const unsigned char* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <class T>
void storeSample(unsigned char* p, T v)
{
    std::memcpy(p, &v, sizeof v);
}

// ---------------------------------------------------------------------------------------------
// A run of 8-bit three-byte pixels into 8-bit ARGB with an opaque alpha: b0, b1, b2 (or b2,
// b1, b0 when Reversed) then 255. Reads exactly 3 * n bytes and writes exactly 4 * n.

template <bool Reversed>
void rgb8RunScalar(const unsigned char* in, unsigned char* out, std::size_t n)
{
    for (std::size_t x = 0; x < n; ++x, in += 3, out += 4) {
        const std::uint32_t word = Reversed ? (std::uint32_t(in[2]) | std::uint32_t(in[1]) << 8 |
                                               std::uint32_t(in[0]) << 16 | 0xFF000000u)
                                            : (std::uint32_t(in[0]) | std::uint32_t(in[1]) << 8 |
                                               std::uint32_t(in[2]) << 16 | 0xFF000000u);
        store32(out, word);
    }
}

#if defined(__x86_64__) || defined(__i386__)
// Sixteen pixels a step: three 16-byte loads hold them, and a byte shuffle spreads each group
// of four into its four words.
template <bool Reversed>
__attribute__((target("ssse3"))) void rgb8RunSSSE3(const unsigned char* in, unsigned char* out, std::size_t n)
{
    const __m128i spread = Reversed ? _mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1)
                                    : _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    const __m128i alpha = _mm_set1_epi32(int(0xFF000000u));
    std::size_t x = 0;
    for (; x + 16 <= n; x += 16, in += 48, out += 64) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 16));
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 32));
        const __m128i p0 = a;
        const __m128i p1 = _mm_alignr_epi8(b, a, 12);
        const __m128i p2 = _mm_alignr_epi8(c, b, 8);
        const __m128i p3 = _mm_srli_si128(c, 4);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_or_si128(_mm_shuffle_epi8(p0, spread), alpha));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16), _mm_or_si128(_mm_shuffle_epi8(p1, spread), alpha));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 32), _mm_or_si128(_mm_shuffle_epi8(p2, spread), alpha));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 48), _mm_or_si128(_mm_shuffle_epi8(p3, spread), alpha));
    }
    rgb8RunScalar<Reversed>(in, out, n - x);
}

const bool hasSSSE3 = [] {
    __builtin_cpu_init();  // may run before the constructor that would otherwise do it
    return __builtin_cpu_supports("ssse3") != 0;
}();
#endif

template <bool Reversed>
void rgb8Run(const unsigned char* in, unsigned char* out, std::size_t n)
{
#if defined(__x86_64__) || defined(__i386__)
    if (hasSSSE3) return rgb8RunSSSE3<Reversed>(in, out, n);
#endif
    rgb8RunScalar<Reversed>(in, out, n);
}

// ---------------------------------------------------------------------------------------------
// The shared loop of the RGB line templates.
//
// The source is read line by line, `width` pixels of three samples and then the padding that
// brings the line to a multiple of 4 bytes; the destination is written packed, four samples a
// pixel; the walk ends when the source lines are used up. Reversed puts s2, s1, s0 in the
// destination's first three samples, otherwise s0, s1, s2. Narrowing from 16 to 8 bits keeps
// the low byte of the read, and widening keeps the value.
//
// `srcFirst` and `srcMemory` name where the source lines start and the memory they may be read
// from, which the high-byte view of reorder takes from the true source. Walks packed lines
// without reading either stride.
template <class S, class D, bool Reversed>
void rgbLinesToARGB(const Base& src, std::uintptr_t srcFirst, const W::Extent& srcMemory, Base& dst)
{
    const std::uint64_t width = src.getWidth();
    const std::uint64_t height = src.getHeight();
    if (width == 0 || height == 0) return;

    constexpr std::size_t srcPixel = 3 * sizeof(S);
    // A narrowing read uses the low byte of its sample alone, so the last pixel needs only
    // that byte of its last sample.
    constexpr std::size_t srcLastNeeds = sizeof(D) < sizeof(S) ? 2 * sizeof(S) + sizeof(D) : srcPixel;
    constexpr std::size_t dstPixel = 4 * sizeof(D);
    constexpr D alpha = D(~D(0));

    const std::uint64_t srcLineBytes = width * srcPixel;
    const std::uint64_t srcStep = srcLineBytes + (4 - srcLineBytes % 4) % 4;
    const std::uint64_t dstStep = width * dstPixel;
    const W::Extent dstMemory = W::extentOf(dst);
    std::uintptr_t s = srcFirst;
    std::uintptr_t d = W::address(dst.getDataPtr());

    for (std::uint64_t y = 0; y < height; ++y, s += srcStep, d += dstStep) {
        const std::uint64_t fit = std::min({width, W::itemsIn(W::bytesFrom(srcMemory, s), srcPixel, srcLastNeeds),
                                            std::uint64_t(W::bytesFrom(dstMemory, d) / dstPixel)});
        const unsigned char* in = W::pointer(s);
        unsigned char* out = W::pointer(d);
        if constexpr (sizeof(D) == 1 && sizeof(S) == 1) {
            rgb8Run<Reversed>(in, out, fit);
        } else {
            for (std::uint64_t x = 0; x < fit; ++x, in += srcPixel, out += dstPixel) {
                D c[3];
                for (int k = 0; k < 3; ++k) {
                    if constexpr (sizeof(D) < sizeof(S))
                        c[k] = D(in[k * sizeof(S)]);  // the low byte of a little-endian sample
                    else
                        c[k] = D(loadSample<S>(in + k * sizeof(S)));
                }
                storeSample<D>(out, Reversed ? c[2] : c[0]);
                storeSample<D>(out + sizeof(D), c[1]);
                storeSample<D>(out + 2 * sizeof(D), Reversed ? c[0] : c[2]);
                storeSample<D>(out + 3 * sizeof(D), alpha);
            }
        }
        if (fit < width) return;  // the edge of one picture's memory
    }
}

// 8-bit RGB keeps its order in 8-bit ARGB and has it swapped in 16-bit ARGB; BGR3 is the other
// way round.
template <class D>
constexpr bool rgbReversed = sizeof(D) == 2;

// ---------------------------------------------------------------------------------------------
// The repackings of reorder that need no template.

// Same format, same depth: the destination's image size in bytes, as they lie.
void copyImage(const Base& src, Base& dst)
{
    const W::Extent from = W::extentOf(src), to = W::extentOf(dst);
    W::copyLine(to, W::address(dst.getDataPtr()), from, W::address(src.getDataPtr()), dst.getImageSize());
}

// 16 bits a component to 8: each destination byte is the high byte of its source sample. Both
// sides packed, strides not read.
void halveDepth(const Base& src, Base& dst)
{
    KV_ASSERT(src.getBitsPerComponent() == 16);
    const unsigned char components = static_cast<unsigned char>(src.getBitsPerPixel() >> 4);
    const std::uint64_t samples = std::uint64_t(src.getWidth()) * src.getHeight() * components;
    const W::Extent from = W::extentOf(src), to = W::extentOf(dst);
    const std::uintptr_t s = W::address(src.getDataPtr()), d = W::address(dst.getDataPtr());
    const std::uint64_t n = std::min({samples, std::uint64_t(W::bytesFrom(to, d)),
                                      std::uint64_t(W::bytesFrom(from, s) / 2)});
    const unsigned char* in = W::pointer(s);
    unsigned char* out = W::pointer(d);
    for (std::uint64_t i = 0; i < n; ++i) out[i] = in[2 * i + 1];
}

// RGB into ARGB of the other vertical order: source line y lands on the destination's line
// y from the bottom, each pixel as the word 0xFF000000 | b0 | b1 << 8 | b2 << 16 whatever the
// destination's depth. Reads both strides.
void flippingCopy(const Base& src, Base& dst)
{
    const std::uint64_t width = src.getWidth();
    const std::uint64_t height = src.getHeight();
    const std::int64_t srcStride = src.getStride();
    const std::int64_t dstStride = dst.getStride();
    if (width == 0 || height == 0) return;
    const W::Extent from = W::extentOf(src), to = W::extentOf(dst);
    const std::uintptr_t s0 = W::address(src.getDataPtr());
    const std::uintptr_t d0 = W::address(dst.getDataPtr()) + dst.getImageSize() - std::uintptr_t(dstStride);
    const W::Run run = W::copyRun(height, {W::Side{from, s0, srcStride}, W::Side{to, d0, -dstStride}});
    if (run.empty()) return;

    auto fitAt = [&](std::uint64_t y) {
        return std::min({width, W::itemsIn(W::bytesFrom(from, s0 + y * srcStride), 3, 3),
                         std::uint64_t(W::bytesFrom(to, d0 - y * dstStride) / 4)});
    };
    // When the stride is shorter than the line, the next line written, one stride lower,
    // covers the start of this one again; only the pixels that it leaves are written here.
    // The outcome is the same, and a stride too short no longer costs a whole line's work for
    // every byte of memory. That holds while the reads cannot see what was written.
    const bool apart = from.end <= to.begin || to.end <= from.begin;
    const bool overlapping = apart && std::uint64_t(dstStride) < 4 * width;

    std::uint64_t fit = fitAt(run.lo);
    for (std::uint64_t y = run.lo; y < run.hi; ++y) {
        const std::uint64_t nextFit = y + 1 < run.hi ? fitAt(y + 1) : 0;
        std::uint64_t x = 0;
        if (overlapping && y + 1 < run.hi && 4 * nextFit > std::uint64_t(dstStride))
            x = std::min(fit, (4 * nextFit - std::uint64_t(dstStride)) / 4);
        if (x < fit) rgb8Run<false>(W::pointer(s0 + y * srcStride) + 3 * x, W::pointer(d0 - y * dstStride) + 4 * x, fit - x);
        fit = nextFit;
    }
}

// The 16-to-8-bit RGB row: a picture over the source's bytes shifted by one, read as 16-bit
// samples, whose low bytes are the high bytes of the true samples. The view's own size says
// "all memory", so the walk is bounded by the true source's memory instead.
void highByteView(const Base& src, Base& dst)
{
    Surface view(src.getWidth(), src.getHeight(), src.getDataFormat(), false, src.getBitsPerComponent(), 0, 0);
    view.setDataPtr(W::pointer(W::address(src.getDataPtr()) + 1), -1);
    rgbLinesToARGB<unsigned short, unsigned char, rgbReversed<unsigned char>>(
        view, W::address(view.getDataPtr()), W::extentOf(src), dst);
}

// For every pixel of the source's size, the first three bytes of each four. Both sides packed.
void argbToRGB(const Base& src, Base& dst)
{
    const std::uint64_t pixels = std::uint64_t(src.getWidth()) * src.getHeight();
    const W::Extent from = W::extentOf(src), to = W::extentOf(dst);
    const std::uintptr_t s = W::address(src.getDataPtr()), d = W::address(dst.getDataPtr());
    const std::uint64_t n = std::min({pixels, W::itemsIn(W::bytesFrom(from, s), 4, 3),
                                      std::uint64_t(W::bytesFrom(to, d) / 3)});
    const unsigned char* in = W::pointer(s);
    unsigned char* out = W::pointer(d);
    for (std::uint64_t i = 0; i < n; ++i, in += 4, out += 3) {
        out[0] = in[0];
        out[1] = in[1];
        out[2] = in[2];
    }
}

// ---------------------------------------------------------------------------------------------
// frameToFrame's pieces.

// The video metadata of `in` on `out`: scan mode, aspect ratio, video format, polarity,
// colorimetry and the gamut flag, with the groups' flags.
bool copyVideoMetadata(const Surface& in, Surface& out)
{
    static_cast<Video::Interface&>(out) = static_cast<const Video::Interface&>(in);
    static_cast<VideoSample::Interface&>(out) = static_cast<const VideoSample::Interface&>(in);
    return true;
}

bool copyPath(const Surface& in, Surface& out)
{
    out = in;
    return copyVideoMetadata(in, out);
}

// 10-bit logarithmic film density to 8-bit display values: black at code 95, white at 685, a
// display gamma of 1.7 over a density step of 0.002 a code.
void buildLogTable(int (&table)[1024])
{
    for (int i = 0; i < 95; ++i) table[i] = 0;
    for (int i = 95; i < 685; ++i) {
        const double v = std::pow(std::pow(10.0, (i - 685.0) * 0.0033333333333333335), 0.35294117647058826) *
                             319.6478601710603 -
                         64.6478601710603;
        table[i] = static_cast<int>(v > 0 ? v + 0.5 : v - 0.5);
    }
    for (int i = 685; i < 1024; ++i) table[i] = 255;
}

bool logPath(const Surface& in, Surface& out)
{
    int table[1024];
    buildLogTable(table);
    const Format format = in.getDataFormat() == Format(38) ? ARGB : BGRA;
    out.init(in.getWidth(), in.getHeight(), format, true, 0, 0, 0);

    // Both sides packed, one 32-bit word a pixel.
    const std::uint64_t pixels = std::uint64_t(in.getWidth()) * in.getHeight();
    const W::Extent from = W::extentOf(in), to = W::extentOf(out);
    const std::uintptr_t s = W::address(in.getDataPtr()), d = W::address(out.getDataPtr());
    const std::uint64_t n = std::min({pixels, std::uint64_t(W::bytesFrom(from, s) / 4),
                                      std::uint64_t(W::bytesFrom(to, d) / 4)});
    const unsigned char* src = W::pointer(s);
    unsigned char* dst = W::pointer(d);
    for (std::uint64_t i = 0; i < n; ++i) {
        const std::uint32_t w = load32(src + 4 * i);
        store32(dst + 4 * i, 0xFF000000u | std::uint32_t(table[w >> 22]) << 16 |
                                 std::uint32_t(table[(w >> 12) & 0x3FF]) << 8 |
                                 std::uint32_t(table[(w >> 2) & 0x3FF]));
    }
    return copyVideoMetadata(in, out);
}

bool rgbPath(const Surface& in, Surface& out, unsigned short outputBitDepth)
{
    switch (in.getBitsPerPixel()) {
    case 24: {
        if (!out.getDataPtr())
            out.init(in.getWidth(), in.getHeight(), out.getDataFormat(), true, outputBitDepth, 0, 0);
        // BGR3 does its work in reorder and still answers false: convert gives it a second
        // chance through the plug-ins.
        const bool converted = ImageConverter::reorder(in, out) || ImageConverter::convert(in, out);
        KV_ASSERT(converted);
        return copyVideoMetadata(in, out);
    }
    case 32:
        out = in;
        if (in.getIsTopDown())
            out.setDataFormat(ARGB);
        else
            out.flip();  // and the format stays as it was
        return copyVideoMetadata(in, out);
    default:
        if (outputBitDepth == in.getBitsPerComponent() && in.getDataFormat() == out.getDataFormat())
            return copyPath(in, out);
        out.init(in.getWidth(), in.getHeight(), out.getDataFormat(), true, outputBitDepth, 0, 0);
        ImageConverter::reorder(in, out);
        return copyVideoMetadata(in, out);
    }
}

bool planarPath(const Surface& in, Surface& out, unsigned short outputBitDepth)
{
    if (in.getBitsPerPixel() == 48 && in.getBitsPerComponent() == 16) {
        out.init(in.getWidth(), in.getHeight(), ARGB, true, outputBitDepth, 0, 0);
        ImageConverter::RGBPlanar16ToARGB(in, out, outputBitDepth);
        return copyVideoMetadata(in, out);
    }
    if (in.getBitsPerPixel() == 24 && in.getBitsPerComponent() == 8) {
        out.init(in.getWidth(), in.getHeight(), ARGB, true, outputBitDepth, 0, 0);
        ImageConverter::RGBPlanar8ToARGB(in, out, outputBitDepth);
        return copyVideoMetadata(in, out);
    }
    KV_ASSERT(out.getDataFormat() == ARGB);
    out.init(in.getWidth(), in.getHeight(), ARGB, true, outputBitDepth, 0, 0);
    if (ImageConverter::convert(in, out)) return true;
    KV_ASSERT(false);
    return false;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// The line templates: the five instances the library uses are made here.

template <class S, class D>
void reorderBGRtoARGB(const Base& src, Base& dst)
{
    rgbLinesToARGB<S, D, !rgbReversed<D>>(src, W::address(src.getDataPtr()), W::extentOf(src), dst);
}

template <class S, class D>
void reorderRGBtoARGB(const Base& src, Base& dst)
{
    rgbLinesToARGB<S, D, rgbReversed<D>>(src, W::address(src.getDataPtr()), W::extentOf(src), dst);
}

template KV_EXPORT void reorderBGRtoARGB<unsigned char, unsigned char>(const Base&, Base&);
template KV_EXPORT void reorderRGBtoARGB<unsigned char, unsigned char>(const Base&, Base&);
template KV_EXPORT void reorderRGBtoARGB<unsigned char, unsigned short>(const Base&, Base&);
template KV_EXPORT void reorderRGBtoARGB<unsigned short, unsigned char>(const Base&, Base&);
template KV_EXPORT void reorderRGBtoARGB<unsigned short, unsigned short>(const Base&, Base&);

// ---------------------------------------------------------------------------------------------
// convert

bool ImageConverter::convert(const Surface& src, Surface& dst)
{
    ImageTiming timing("convert");
    const unsigned int srcWidth = src.getWidth(), srcHeight = src.getHeight();
    const unsigned int dstWidth = dst.getWidth(), dstHeight = dst.getHeight();
    bool result = false;

    if (srcWidth == dstWidth && srcHeight == dstHeight) {
        if (src.getDataFormat() == dst.getDataFormat() &&
            src.getBitsPerComponent() == dst.getBitsPerComponent() &&
            src.getBitsPerPixel() == dst.getBitsPerPixel() &&
            src.getIsVideoGamutScaled() == dst.getIsVideoGamutScaled()) {
            dst = src;  // shares the pixels: nothing to convert
            return true;
        }
        if (!dst.getDataPtr())
            dst.init(dstWidth, dstHeight, dst.getDataFormat(), true, dst.getBitsPerComponent(),
                     dst.getBitsPerPixel(), static_cast<unsigned short>(dst.getStride()));
        if (reorder(src, dst)) return true;
        result = iImageConvert::doConvert(src, dst);
    } else {
        if (!dst.getDataPtr())
            dst.init(dstWidth, dstHeight, dst.getDataFormat(), true, dst.getBitsPerComponent(),
                     dst.getBitsPerPixel(), 0);
        // Change format on the smaller picture: an enlarging converts first and resizes after,
        // a reduction resizes first. Equal pixel counts convert first.
        if (std::uint64_t(srcWidth) * srcHeight <= std::uint64_t(dstWidth) * dstHeight) {
            Surface temp(srcWidth, srcHeight, dst.getDataFormat(), true, 0, 0, 0);
            result = iImageConvert::doConvert(src, temp) && resize(temp, dst);
        } else {
            Surface temp(dstWidth, dstHeight, src.getDataFormat(), true, 0, 0, 0);
            result = resize(src, temp) && iImageConvert::doConvert(temp, dst);
        }
    }
    KV_ASSERT(result);
    return result;
}

// ---------------------------------------------------------------------------------------------
// reorder

bool ImageConverter::reorder(const Base& src, Base& dst)
{
    if (!dst.getDataPtr()) return false;
    ImageTiming timing("reorder");
    const Format from = src.getDataFormat(), to = dst.getDataFormat();

    if (from == to) {
        const unsigned short srcBits = src.getBitsPerPixel(), dstBits = dst.getBitsPerPixel();
        if (srcBits == dstBits) {
            KV_ASSERT(false);  // nothing to reorder; copied all the same
            copyImage(src, dst);
        } else if ((srcBits == 64 && dstBits == 32) || (srcBits == 48 && dstBits == 24)) {
            halveDepth(src, dst);
        } else {
            KV_ASSERT(false);
        }
        return true;
    }

    if (from == BGR3 && to == ARGB) {
        if (src.getBitsPerComponent() == 8 && dst.getBitsPerComponent() == 8)
            reorderBGRtoARGB<unsigned char, unsigned char>(src, dst);
        // False even when done, so that convert offers the pair to the plug-ins too.
        return false;
    }

    if (from == RGB && to == ARGB) {
        if (src.getIsTopDown() != dst.getIsTopDown()) {
            flippingCopy(src, dst);
            return true;
        }
        const unsigned short srcBits = src.getBitsPerComponent(), dstBits = dst.getBitsPerComponent();
        if (srcBits == 8 && dstBits == 8) {
            reorderRGBtoARGB<unsigned char, unsigned char>(src, dst);
        } else if (srcBits == 8 && dstBits == 16) {
            reorderRGBtoARGB<unsigned char, unsigned short>(src, dst);
        } else if (srcBits == 16 && dstBits == 8) {
            highByteView(src, dst);
        } else if (srcBits == 16 && dstBits == 16) {
            reorderRGBtoARGB<unsigned short, unsigned short>(src, dst);
        } else {
            KV_ASSERT(false);
            static_cast<Core::Interface&>(dst) = static_cast<const Core::Interface&>(src);
            static_cast<BufferFormat::Interface&>(dst) = static_cast<const BufferFormat::Interface&>(src);
        }
        return true;
    }

    if (from == ARGB && to == RGB) {
        argbToRGB(src, dst);
        return true;
    }

    if (from == BGRA && to == ARGB) {
        // The reversed picture is made and dropped: the destination keeps what it had.
        createReversedBytesImage(src);
        return true;
    }

    if (from == Format(37) && to == ARGB) {
        ImageTiming planar("RGBPlanar16ToARGB");
        return RGBPlanar16ToARGB(src, dst, dst.getBitsPerComponent());
    }

    return false;
}

// ---------------------------------------------------------------------------------------------
// frameToFrame

bool ImageConverter::frameToFrame(const Surface& in, Surface& out, unsigned short outputBitDepth)
{
    if (!in.getDataPtr()) return false;
    switch (static_cast<std::int32_t>(in.getDataFormat())) {
    case 0:
    case DIB:
    case BGR3:
    case ARGB:
    case RGB:
        return rgbPath(in, out, outputBitDepth);
    case 31:
    case 35:
    case 36:
    case M101:
    case M102:
    case M103:
    case M104:
    case YUY2:
    case UYVY:
    case BGRA:
    case BGR4:
        return copyPath(in, out);
    case YUYV:
        out = in;
        out.setDataFormat(YUY2);
        return copyVideoMetadata(in, out);
    case 37:
        return planarPath(in, out, outputBitDepth);
    case 38:
    case 39:
        return logPath(in, out);
    default:
        if (iImageConvert::doConvert(in, out)) return true;
        KV_ASSERT(false);
        return copyPath(in, out);
    }
}
