// kvconvert_swscale: the conversion plug-in on FFmpeg's libswscale. It converts between the
// packed 4:2:2 YUV layouts, NV12, YV12 and the RGB layouts of the library, with the BT.601 or
// BT.709 matrix and in video or full range as the pictures say, and resizes any of them with
// a Lanczos filter. What it cannot do it declines, so that the next plug-in may try.
//
// libswscale reads and writes a little past the ends of lines with its vector code, and some of
// its paths want aligned planes. So it never sees a picture's own memory: each side is staged
// through buffers of the plug-in's own, 64-byte aligned and padded, and the copies in and out
// keep to the lines the descriptors give and to the memory behind each picture. The staging
// copies also turn the picture upside down when the two disagree about which line comes first,
// put YV12's planes in libswscale's order, unpack and pack the 10-bit RGB layout, and map
// video-range RGB, which libswscale does not know, to and from full range.

extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "ole/image/MTPixelIterator.h"
#include "ole/image/iImageConvert.h"
#include "ole/platform/plugins/KvDeviceDriverManager.h"

using namespace Kv::Image;

namespace {

// --- Layouts ---------------------------------------------------------------------------------

// How a layout's memory is organised, and so how it is staged.
enum class Kind {
    Packed,      // one plane of whole pixels (RGB layouts), or of pixel pairs (4:2:2 YUV)
    Packed10,    // format 35: one 32-bit word a pixel, staged as 48-bit RGB
    Nv12,        // luma plane, then one plane of interleaved U, V at half height
    Yv12,        // luma plane, then V, then U, each at half width and height
};

struct Layout {
    AVPixelFormat av = AV_PIX_FMT_NONE;  // what libswscale sees (the staged form)
    Kind kind = Kind::Packed;
    bool yuv = false;
    int bytesPerPixel = 0;  // in the picture's memory, packed kinds
    int sampleBytes = 1;    // of the staged RGB samples: 1 or 2
    int samplesPerPixel = 0;
    int alphaSample = -1;   // staged sample index of alpha, -1 for none

    explicit operator bool() const { return av != AV_PIX_FMT_NONE; }
};

// The library's rule for 8-bit RGB layouts is blue first in memory (ARGB is bytes blue, green,
// red, alpha); 16-bit ARGB is the words red, green, blue, alpha, and 48-bit RGB is blue first.
Layout layoutOf(const Surface& s)
{
    const unsigned bpc = s.getBitsPerComponent();
    const unsigned bpp = s.getBitsPerPixel();
    auto rgb = [](AVPixelFormat av, int bytes, int sampleBytes, int samples, int alpha) {
        return Layout{av, Kind::Packed, false, bytes, sampleBytes, samples, alpha};
    };
    auto yuv422 = [&](AVPixelFormat av) {
        return bpc == 8 && bpp == 16 ? Layout{av, Kind::Packed, true, 2, 1, 0, -1} : Layout{};
    };
    switch (s.getDataFormat()) {
    case UYVY: return yuv422(AV_PIX_FMT_UYVY422);
    case YUY2:
    case YUYV: return yuv422(AV_PIX_FMT_YUYV422);
    case YVYU: return yuv422(AV_PIX_FMT_YVYU422);
    case NV12: return bpc == 8 && bpp == 12 ? Layout{AV_PIX_FMT_NV12, Kind::Nv12, true} : Layout{};
    case YV12: return bpc == 8 && bpp == 12 ? Layout{AV_PIX_FMT_YUV420P, Kind::Yv12, true} : Layout{};
    case ARGB:
        if (bpc == 8 && bpp == 32) return rgb(AV_PIX_FMT_BGRA, 4, 1, 4, 3);
        if (bpc == 16 && bpp == 64) return rgb(AV_PIX_FMT_RGBA64LE, 8, 2, 4, 3);
        return {};
    case BGRA:
        // The reversed bytes of 8-bit ARGB. 16-bit BGRA (alpha, blue, green, red words) has no
        // match in libswscale.
        return bpc == 8 && bpp == 32 ? rgb(AV_PIX_FMT_ARGB, 4, 1, 4, 0) : Layout{};
    case RGB:
        if (bpc == 8 && bpp == 24) return rgb(AV_PIX_FMT_BGR24, 3, 1, 3, -1);
        if (bpc == 16 && bpp == 48) return rgb(AV_PIX_FMT_BGR48LE, 6, 2, 3, -1);
        return {};
    case BGR3:
        if (bpc == 8 && bpp == 24) return rgb(AV_PIX_FMT_RGB24, 3, 1, 3, -1);
        if (bpc == 16 && bpp == 48) return rgb(AV_PIX_FMT_RGB48LE, 6, 2, 3, -1);
        return {};
    default:
        // Red in bits 20 to 29, green 10 to 19, blue 0 to 9. libswscale's own X2RGB10 goes
        // through 4:2:2 chroma and is some codes off, so the words are unpacked to 16-bit
        // RGB here instead.
        if (int(s.getDataFormat()) == 35 && bpc == 10 && bpp == 32)
            return Layout{AV_PIX_FMT_RGB48LE, Kind::Packed10, false, 4, 2, 3, -1};
        return {};
    }
}

// --- The memory of a picture -----------------------------------------------------------------

// Up to three planes, in memory order, each as lines of lineBytes every stride bytes.
struct Planes {
    int count = 0;
    unsigned char* first[3] = {};
    std::size_t stride[3] = {};
    std::size_t lineBytes[3] = {};
    unsigned int lines[3] = {};
};

// The planes of a picture, or false when its descriptors do not make sense for its layout or
// its memory does not hold every line they give.
bool planesOf(const Surface& s, const Layout& layout, Planes& p)
{
    unsigned char* data = s.getDataPtr();
    const std::size_t width = s.getWidth();
    const std::size_t height = s.getHeight();
    const std::size_t stride = s.getStride();
    if (!data || width == 0 || height == 0) return false;

    if (layout.kind == Kind::Packed || layout.kind == Kind::Packed10) {
        // A 4:2:2 pair never splits.
        if (layout.yuv && width % 2) return false;
        p.count = 1;
        p.first[0] = data;
        p.stride[0] = stride;
        p.lineBytes[0] = width * layout.bytesPerPixel;
        p.lines[0] = unsigned(height);
    } else {
        // The stride counts 12 bits a pixel: two thirds of it is the luma line.
        if (width % 2 || height % 2 || stride % 3) return false;
        const std::size_t luma = stride / 3 * 2;
        const std::size_t lumaBytes = luma * height;
        p.first[0] = data;
        p.stride[0] = luma;
        p.lineBytes[0] = width;
        p.lines[0] = unsigned(height);
        if (layout.kind == Kind::Nv12) {
            p.count = 2;
            p.first[1] = data + lumaBytes;
            p.stride[1] = luma;
            p.lineBytes[1] = width;
            p.lines[1] = unsigned(height / 2);
        } else {
            p.count = 3;
            for (int i = 1; i < 3; ++i) {
                p.first[i] = data + lumaBytes + (i - 1) * (luma / 2) * (height / 2);
                p.stride[i] = luma / 2;
                p.lineBytes[i] = width / 2;
                p.lines[i] = unsigned(height / 2);
            }
        }
    }
    for (int i = 0; i < p.count; ++i) {
        if (p.stride[i] < p.lineBytes[i]) return false;
        if (s.holderBytesFrom(p.first[i]) < p.stride[i] * (p.lines[i] - 1) + p.lineBytes[i]) return false;
    }
    return true;
}

// --- Staging buffers -------------------------------------------------------------------------

constexpr std::size_t alignment = 64;
// Room after each staged plane for the vector code's overshoot, beyond the padding of its
// last line.
constexpr std::size_t tailRoom = 1024;

std::size_t alignUp(std::size_t n) { return (n + alignment - 1) / alignment * alignment; }

// A picture in the form libswscale is given: planes in its order, aligned and padded.
struct Staged {
    std::vector<unsigned char> storage;
    uint8_t* plane[4] = {};
    int linesize[4] = {};
    std::size_t lineBytes[4] = {};
    unsigned int lines[4] = {};
    int count = 0;

    // Lays out the planes of a width x height picture of `layout`.
    void shape(const Layout& layout, unsigned int width, unsigned int height)
    {
        std::size_t bytes[3] = {};
        switch (layout.kind) {
        case Kind::Packed:
            count = 1;
            bytes[0] = std::size_t(width) * layout.bytesPerPixel;
            lines[0] = height;
            break;
        case Kind::Packed10:
            count = 1;
            bytes[0] = std::size_t(width) * 6;
            lines[0] = height;
            break;
        case Kind::Nv12:
            count = 2;
            bytes[0] = bytes[1] = width;
            lines[0] = height;
            lines[1] = height / 2;
            break;
        case Kind::Yv12:
            count = 3;
            bytes[0] = width;
            bytes[1] = bytes[2] = width / 2;
            lines[0] = height;
            lines[1] = lines[2] = height / 2;
            break;
        }
        std::size_t total = alignment;
        std::size_t offsets[3] = {};
        for (int i = 0; i < count; ++i) {
            lineBytes[i] = bytes[i];
            linesize[i] = int(alignUp(bytes[i]));
            offsets[i] = total;
            total += alignUp(std::size_t(linesize[i]) * lines[i] + linesize[i] + tailRoom);
        }
        storage.assign(total, 0);
        const auto base = reinterpret_cast<std::uintptr_t>(storage.data());
        unsigned char* aligned = storage.data() + (alignUp(base) - base);
        for (int i = 0; i < count; ++i) plane[i] = aligned + offsets[i] - alignment;
    }

    unsigned char* line(int p, unsigned int y) { return plane[p] + std::size_t(linesize[p]) * y; }
};

// The staged plane that a memory plane of the picture goes to: YV12 keeps V before U, and
// libswscale's planar 4:2:0 wants U first.
int stagedPlane(const Layout& layout, int memoryPlane)
{
    if (layout.kind == Kind::Yv12 && memoryPlane > 0) return 3 - memoryPlane;
    return memoryPlane;
}

// --- Video-range RGB -------------------------------------------------------------------------

// Video range puts black at 16 and white at 235 of 255 (4096 and 60160 of 65535, 64 and 940 of
// 1023); libswscale's RGB is full range only.
struct RangeTables {
    unsigned char expand[256];
    unsigned char compress[256];

    RangeTables()
    {
        for (int v = 0; v < 256; ++v) {
            expand[v] = static_cast<unsigned char>(std::clamp((std::max(v - 16, 0) * 255 + 109) / 219, 0, 255));
            compress[v] = static_cast<unsigned char>(16 + (v * 219 + 127) / 255);
        }
    }
};

const RangeTables& rangeTables()
{
    static const RangeTables tables;
    return tables;
}

std::uint16_t expand16(std::uint32_t v)
{
    if (v <= 4096) return 0;
    return std::uint16_t(std::min<std::uint32_t>(((v - 4096) * 65535u + 28032u) / 56064u, 65535u));
}

std::uint16_t compress16(std::uint32_t v) { return std::uint16_t(4096 + (v * 56064u + 32767u) / 65535u); }

// Maps the colour samples of a staged RGB line, leaving alpha alone.
void mapRange(const Layout& layout, unsigned char* line, unsigned int width, bool toFull)
{
    const int samples = layout.samplesPerPixel;
    if (layout.sampleBytes == 1) {
        const unsigned char* table = toFull ? rangeTables().expand : rangeTables().compress;
        for (unsigned int x = 0; x < width; ++x, line += samples)
            for (int c = 0; c < samples; ++c)
                if (c != layout.alphaSample) line[c] = table[line[c]];
        return;
    }
    auto* words = reinterpret_cast<std::uint16_t*>(line);  // staged lines are aligned
    for (unsigned int x = 0; x < width; ++x, words += samples)
        for (int c = 0; c < samples; ++c)
            if (c != layout.alphaSample) words[c] = toFull ? expand16(words[c]) : compress16(words[c]);
}

// --- Staging copies --------------------------------------------------------------------------

// Format 35 words to 16-bit red, green, blue.
void unpack10(const unsigned char* in, std::uint16_t* out, unsigned int width, bool video)
{
    auto widen = [video](std::uint32_t v) -> std::uint16_t {
        if (!video) return std::uint16_t((v * 65535u + 511u) / 1023u);
        if (v <= 64) return 0;
        return std::uint16_t(std::min<std::uint32_t>(((v - 64) * 65535u + 438u) / 876u, 65535u));
    };
    for (unsigned int x = 0; x < width; ++x, in += 4, out += 3) {
        std::uint32_t w;
        std::memcpy(&w, in, 4);
        out[0] = widen((w >> 20) & 0x3FF);
        out[1] = widen((w >> 10) & 0x3FF);
        out[2] = widen(w & 0x3FF);
    }
}

// 16-bit red, green, blue to format 35 words, the two top bits set as the library's 10-bit
// readers leave them.
void pack10(const std::uint16_t* in, unsigned char* out, unsigned int width, bool video)
{
    auto narrow = [video](std::uint32_t v) -> std::uint32_t {
        return video ? 64 + (v * 876u + 32767u) / 65535u : (v * 1023u + 32767u) / 65535u;
    };
    for (unsigned int x = 0; x < width; ++x, in += 3, out += 4) {
        const std::uint32_t w = 0xC0000000u | narrow(in[0]) << 20 | narrow(in[1]) << 10 | narrow(in[2]);
        std::memcpy(out, &w, 4);
    }
}

// The picture's lines into the staged buffer; with `flip` the last line of each plane first.
void stageIn(const Surface& s, const Layout& layout, const Planes& p, Staged& staged, bool flip)
{
    const bool video = !layout.yuv && s.getIsVideoGamutScaled();
    const unsigned int width = s.getWidth();
    for (int i = 0; i < p.count; ++i) {
        const int target = stagedPlane(layout, i);
        for (unsigned int y = 0; y < p.lines[i]; ++y) {
            const unsigned int from = flip ? p.lines[i] - 1 - y : y;
            const unsigned char* in = p.first[i] + p.stride[i] * from;
            unsigned char* out = staged.line(target, y);
            if (layout.kind == Kind::Packed10) {
                unpack10(in, reinterpret_cast<std::uint16_t*>(out), width, video);
                continue;
            }
            std::memcpy(out, in, p.lineBytes[i]);
            if (video) mapRange(layout, out, width, true);
        }
    }
}

// The staged buffer's lines into the picture.
void stageOut(Staged& staged, const Layout& layout, const Planes& p, Surface& s)
{
    const bool video = !layout.yuv && s.getIsVideoGamutScaled();
    const unsigned int width = s.getWidth();
    for (int i = 0; i < p.count; ++i) {
        const int source = stagedPlane(layout, i);
        for (unsigned int y = 0; y < p.lines[i]; ++y) {
            unsigned char* in = staged.line(source, y);
            unsigned char* out = p.first[i] + p.stride[i] * y;
            if (layout.kind == Kind::Packed10) {
                pack10(reinterpret_cast<const std::uint16_t*>(in), out, width, video);
                continue;
            }
            if (video) mapRange(layout, in, width, false);
            std::memcpy(out, in, p.lineBytes[i]);
        }
    }
}

// --- Colour ----------------------------------------------------------------------------------

// The matrix a YUV picture was made with: its colorimetry, or by its size when it does not say
// (standard definition below 720 lines, high definition from there).
int matrixOf(const Surface& s)
{
    switch (s.getColorimetry()) {
    case C601: return SWS_CS_ITU601;
    case C709: return SWS_CS_ITU709;
    default: return s.getHeight() < 720 ? SWS_CS_ITU601 : SWS_CS_ITU709;
    }
}

// --- libswscale contexts, kept by the shape of the conversion --------------------------------

struct Shape {
    int srcWidth = 0, srcHeight = 0, dstWidth = 0, dstHeight = 0;
    AVPixelFormat srcFormat = AV_PIX_FMT_NONE, dstFormat = AV_PIX_FMT_NONE;
    Kind srcKind = Kind::Packed, dstKind = Kind::Packed;
    int srcMatrix = 0, dstMatrix = 0;
    int srcFullRange = 0, dstFullRange = 0;

    bool operator==(const Shape&) const = default;
};

// Lanczos for every change of size, exact rounding, and chroma at full horizontal resolution
// on the way in from RGB and on the way out to RGB.
constexpr int scaleFlags = SWS_LANCZOS | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;

// One conversion's libswscale context with its staging buffers. A job is used by one thread at
// a time.
struct Job {
    Shape shape;
    SwsContext* context = nullptr;
    Staged in;
    Staged out;

    ~Job() { sws_freeContext(context); }
};

class JobCache {
public:
    // A job for `shape`, from those that are idle or new; null when libswscale refuses it.
    std::unique_ptr<Job> acquire(const Shape& shape, const Layout& src, const Layout& dst)
    {
        {
            std::lock_guard hold(lock_);
            for (auto it = idle_.begin(); it != idle_.end(); ++it) {
                if ((*it)->shape == shape) {
                    std::unique_ptr<Job> job = std::move(*it);
                    idle_.erase(it);
                    return job;
                }
            }
        }
        return make(shape, src, dst);
    }

    // Keeps the job for the next conversion of its shape; the least recently used go first.
    void release(std::unique_ptr<Job> job)
    {
        std::unique_ptr<Job> dropped;
        std::lock_guard hold(lock_);
        idle_.push_front(std::move(job));
        if (idle_.size() > maxIdle) {
            dropped = std::move(idle_.back());
            idle_.pop_back();
        }
    }

private:
    static constexpr std::size_t maxIdle = 4;

    static std::unique_ptr<Job> make(const Shape& shape, const Layout& src, const Layout& dst)
    {
        auto job = std::make_unique<Job>();
        job->shape = shape;
        job->context = sws_getCachedContext(nullptr, shape.srcWidth, shape.srcHeight, shape.srcFormat,
                                            shape.dstWidth, shape.dstHeight, shape.dstFormat, scaleFlags,
                                            nullptr, nullptr, nullptr);
        if (!job->context) return nullptr;
        if (sws_setColorspaceDetails(job->context, sws_getCoefficients(shape.srcMatrix), shape.srcFullRange,
                                     sws_getCoefficients(shape.dstMatrix), shape.dstFullRange, 0, 1 << 16,
                                     1 << 16) < 0)
            return nullptr;
        job->in.shape(src, unsigned(shape.srcWidth), unsigned(shape.srcHeight));
        job->out.shape(dst, unsigned(shape.dstWidth), unsigned(shape.dstHeight));
        return job;
    }

    std::mutex lock_;
    std::list<std::unique_ptr<Job>> idle_;
};

JobCache& jobs()
{
    // Lives as long as the process: the module is never unloaded.
    static JobCache* const cache = new JobCache;
    return *cache;
}

// --- 4:2:2 to 8-bit RGB without libswscale -----------------------------------------------------

// The conversion editors meet on every frame of video they show: 8-bit 4:2:2 to 8-bit RGB of
// the same size. libswscale's only path for it that keeps within a code of the formulas is its
// per-pixel C path, so it is done here, in integers with 16-bit fractions (exact to well within
// half a code), a line at a time on the pixel iterator's workers.
//
// Chroma is sited with the even pixel of each pair (BT.601 co-siting): the even pixel takes its
// pair's chroma, the odd pixel the mean of its pair's and the next pair's; the last pair of a
// line has no next and keeps its own.

struct Coefficients {
    std::int32_t y, rv, gu, gv, bu;  // times 65536
    std::int32_t black;              // the luma code of black
    std::int32_t bias;               // the RGB code of black times 65536, and half a code
};

// BT.601 and BT.709, from full or video-range YUV, to full or video-range RGB.
struct CoefficientSets {
    Coefficients set[8];

    CoefficientSets()
    {
        for (int i = 0; i < 8; ++i) {
            const bool bt709 = i & 1, videoIn = i & 2, videoOut = i & 4;
            const double kr = bt709 ? 0.2126 : 0.299, kb = bt709 ? 0.0722 : 0.114, kg = 1 - kr - kb;
            const double out = videoOut ? 219.0 / 255 : 1.0;
            const double ys = (videoIn ? 255.0 / 219 : 1.0) * out, cs = (videoIn ? 255.0 / 224 : 1.0) * out;
            auto fixed = [](double v) { return std::int32_t(std::lround(v * 65536)); };
            set[i] = {fixed(ys), fixed(2 * (1 - kr) * cs), fixed(2 * (1 - kb) * kb / kg * cs),
                      fixed(2 * (1 - kr) * kr / kg * cs), fixed(2 * (1 - kb) * cs), videoIn ? 16 : 0,
                      (videoOut ? 16 << 16 : 0) + 32768};
        }
    }
};

const CoefficientSets coefficientSets;

// Byte positions within a pair of pixels of the packed 4:2:2 layouts, and within a pixel of
// the RGB layouts (no alpha in the 3-byte ones).
template <int Y0_, int Y1_, int U_, int V_>
struct Pair422 {
    static constexpr int Y0 = Y0_, Y1 = Y1_, U = U_, V = V_;
};
template <int B_, int G_, int R_, int A_, int Bytes_>
struct Rgb8 {
    static constexpr int B = B_, G = G_, R = R_, A = A_, Bytes = Bytes_;
};

inline std::uint32_t clampCode(std::int32_t v)
{
    v = v < 0 ? 0 : v;
    return std::uint32_t(v > 255 ? 255 : v);
}

// `pairs` pixel pairs; the chroma of the odd pixel is read `next` pairs on (1, or 0 for the
// pair's own). Each pair is read as one little-endian word, and each 32-bit pixel written as
// one: shifts and masks on whole words are what the vectoriser handles best.
template <class In, class Out>
[[gnu::always_inline]] inline void pairsToRgb(const std::uint8_t* __restrict in, std::uint8_t* __restrict out,
                                              std::size_t pairs, const Coefficients k, std::size_t next)
{
    auto byte = [](std::uint32_t word, int at) { return std::int32_t((word >> (8 * at)) & 0xFF); };
    for (std::size_t i = 0; i < pairs; ++i) {
        std::uint32_t word, nextWord;
        std::memcpy(&word, in + 4 * i, 4);
        std::memcpy(&nextWord, in + 4 * (i + next), 4);
        const std::int32_t u0 = byte(word, In::U) - 128, v0 = byte(word, In::V) - 128;
        const std::int32_t u1 = u0 + byte(nextWord, In::U) - 128, v1 = v0 + byte(nextWord, In::V) - 128;
        const std::int32_t y0 = k.y * (byte(word, In::Y0) - k.black) + k.bias;
        const std::int32_t y1 = 2 * (k.y * (byte(word, In::Y1) - k.black) + k.bias);
        const std::uint32_t r0 = clampCode((y0 + k.rv * v0) >> 16), g0 = clampCode((y0 - k.gu * u0 - k.gv * v0) >> 16),
                            b0 = clampCode((y0 + k.bu * u0) >> 16);
        const std::uint32_t r1 = clampCode((y1 + k.rv * v1) >> 17), g1 = clampCode((y1 - k.gu * u1 - k.gv * v1) >> 17),
                            b1 = clampCode((y1 + k.bu * u1) >> 17);
        std::uint8_t* q = out + 2 * Out::Bytes * i;
        if constexpr (Out::Bytes == 4) {
            constexpr std::uint32_t alpha = 0xFFu << (8 * Out::A);
            const std::uint32_t p0 = r0 << (8 * Out::R) | g0 << (8 * Out::G) | b0 << (8 * Out::B) | alpha;
            const std::uint32_t p1 = r1 << (8 * Out::R) | g1 << (8 * Out::G) | b1 << (8 * Out::B) | alpha;
            std::memcpy(q, &p0, 4);
            std::memcpy(q + 4, &p1, 4);
        } else {
            q[Out::R] = std::uint8_t(r0), q[Out::G] = std::uint8_t(g0), q[Out::B] = std::uint8_t(b0);
            q[3 + Out::R] = std::uint8_t(r1), q[3 + Out::G] = std::uint8_t(g1), q[3 + Out::B] = std::uint8_t(b1);
        }
    }
}

template <class In, class Out>
[[gnu::always_inline]] inline void lineToRgb(const std::uint8_t* in, std::uint8_t* out, std::size_t width,
                                             const Coefficients& k)
{
    const std::size_t pairs = width / 2;
    pairsToRgb<In, Out>(in, out, pairs - 1, k, 1);
    pairsToRgb<In, Out>(in + 4 * (pairs - 1), out + 2 * Out::Bytes * (pairs - 1), 1, k, 0);
}

using LineToRgb = void (*)(const std::uint8_t*, std::uint8_t*, std::size_t, const Coefficients&);

// Each form three times: for processors with AVX-512, with AVX2, and for the rest of x86-64
// (and other machines). GCC is told that wide vectors pay on AVX-512 processors, which it
// doubts by default.
template <class In, class Out>
void lineToRgbPlain(const std::uint8_t* in, std::uint8_t* out, std::size_t width, const Coefficients& k)
{
    lineToRgb<In, Out>(in, out, width, k);
}
#if defined(__x86_64__)
#if defined(__clang__)
#define KV_TARGET_AVX512 "avx512f,avx512bw,avx512vl"
#else
#define KV_TARGET_AVX512 "avx512f,avx512bw,avx512vl,prefer-vector-width=512"
#endif
template <class In, class Out>
[[gnu::target("avx2")]] void lineToRgbAvx2(const std::uint8_t* in, std::uint8_t* out, std::size_t width,
                                           const Coefficients& k)
{
    lineToRgb<In, Out>(in, out, width, k);
}
template <class In, class Out>
[[gnu::target(KV_TARGET_AVX512)]] void lineToRgbAvx512(const std::uint8_t* in, std::uint8_t* out,
                                                       std::size_t width, const Coefficients& k)
{
    lineToRgb<In, Out>(in, out, width, k);
}
#endif

template <class In, class Out>
LineToRgb lineToRgbFor()
{
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl"))
        return lineToRgbAvx512<In, Out>;
    if (__builtin_cpu_supports("avx2")) return lineToRgbAvx2<In, Out>;
#endif
    return lineToRgbPlain<In, Out>;
}

using Uyvy = Pair422<1, 3, 0, 2>;
using Yuyv = Pair422<0, 2, 1, 3>;
using Yvyu = Pair422<0, 2, 3, 1>;
using ToArgb = Rgb8<0, 1, 2, 3, 4>;   // bytes blue, green, red, alpha
using ToBgra = Rgb8<3, 2, 1, 0, 4>;   // alpha, red, green, blue
using ToRgb = Rgb8<0, 1, 2, 0, 3>;   // blue, green, red
using ToBgr3 = Rgb8<2, 1, 0, 0, 3>;  // red, green, blue

template <class In>
void lineFormsFor(LineToRgb* forms)
{
    forms[0] = lineToRgbFor<In, ToArgb>();
    forms[1] = lineToRgbFor<In, ToBgra>();
    forms[2] = lineToRgbFor<In, ToRgb>();
    forms[3] = lineToRgbFor<In, ToBgr3>();
}

// Every line function: four inputs (YUY2 and YUYV share one) by four outputs.
struct LineForms {
    LineToRgb form[3][4];

    LineForms()
    {
        lineFormsFor<Uyvy>(form[0]);
        lineFormsFor<Yuyv>(form[1]);
        lineFormsFor<Yvyu>(form[2]);
    }
};

const LineForms lineForms;

// The pixel iterator hands its line functions one int: the line form in the low bits, the
// coefficient set above them.
int directLine(int param, int, int, int width, unsigned char* src, unsigned char* dst)
{
    const LineToRgb form = (&lineForms.form[0][0])[param & 15];
    form(src, dst, std::size_t(width), coefficientSets.set[param >> 4]);
    return 0;
}

int inputForm(Format f)
{
    switch (f) {
    case UYVY: return 0;
    case YUY2:
    case YUYV: return 1;
    case YVYU: return 2;
    default: return -1;
    }
}

int outputForm(const Surface& s)
{
    if (s.getBitsPerComponent() != 8) return -1;
    switch (s.getDataFormat()) {
    case ARGB: return s.getBitsPerPixel() == 32 ? 0 : -1;
    case BGRA: return s.getBitsPerPixel() == 32 ? 1 : -1;
    case RGB: return s.getBitsPerPixel() == 24 ? 2 : -1;
    case BGR3: return s.getBitsPerPixel() == 24 ? 3 : -1;
    default: return -1;
    }
}

// True when the conversion was one this path does, and done.
bool convertDirect(const Surface& src, const Layout& from, const Planes& in, Surface& dst, const Layout& to,
                   const Planes& out)
{
    if (src.getWidth() != dst.getWidth() || src.getHeight() != dst.getHeight()) return false;
    if (from.kind != Kind::Packed || !from.yuv || to.kind != Kind::Packed || to.yuv) return false;
    const int input = inputForm(src.getDataFormat()), output = outputForm(dst);
    if (input < 0 || output < 0) return false;
    // Strides and offsets go through the iterator as ints.
    constexpr std::size_t limit = std::size_t(1) << 30;
    if (in.stride[0] >= limit || out.stride[0] >= limit || in.stride[0] * in.lines[0] >= limit ||
        out.stride[0] * out.lines[0] >= limit)
        return false;
    const bool bt709 = matrixOf(src) == SWS_CS_ITU709;
    const int set = int(bt709) | int(src.getIsVideoGamutScaled()) << 1 | int(dst.getIsVideoGamutScaled()) << 2;
    const int lines = int(in.lines[0]);
    // Pictures that disagree about which line comes first are written from the last line up.
    const bool flip = src.getIsTopDown() != dst.getIsTopDown();
    unsigned char* first = flip ? out.first[0] + out.stride[0] * (lines - 1) : out.first[0];
    const int dstStride = flip ? -int(out.stride[0]) : int(out.stride[0]);
    try {
        return MTPixelIterator::instance()->iterate(set << 4 | input << 2 | output, directLine, in.first[0], first,
                                                    0, 0, int(src.getWidth()), lines, 16, to.bytesPerPixel * 8,
                                                    int(in.stride[0]), dstStride) == 0;
    } catch (const Kv::Exception::Base&) {
        // No workers to be had: one line after another here.
        for (int y = 0; y < lines; ++y)
            directLine(set << 4 | input << 2 | output, 0, y, int(src.getWidth()), in.first[0] + in.stride[0] * y,
                       first + std::ptrdiff_t(dstStride) * y);
        return true;
    }
}

// --- The plug-in -----------------------------------------------------------------------------

bool transfer(const Surface& src, Surface& dst)
{
    const Layout from = layoutOf(src);
    const Layout to = layoutOf(dst);
    if (!from || !to) return false;
    Planes in, out;
    if (!planesOf(src, from, in) || !planesOf(dst, to, out)) return false;
    if (convertDirect(src, from, in, dst, to, out)) return true;

    Shape shape;
    shape.srcWidth = int(src.getWidth());
    shape.srcHeight = int(src.getHeight());
    shape.dstWidth = int(dst.getWidth());
    shape.dstHeight = int(dst.getHeight());
    shape.srcFormat = from.av;
    shape.dstFormat = to.av;
    shape.srcKind = from.kind;
    shape.dstKind = to.kind;
    // libswscale's RGB is full range; video-range RGB is mapped in the staging copies.
    shape.srcMatrix = from.yuv ? matrixOf(src) : SWS_CS_DEFAULT;
    shape.dstMatrix = to.yuv ? matrixOf(dst) : SWS_CS_DEFAULT;
    shape.srcFullRange = from.yuv ? !src.getIsVideoGamutScaled() : 1;
    shape.dstFullRange = to.yuv ? !dst.getIsVideoGamutScaled() : 1;

    std::unique_ptr<Job> job;
    try {
        job = jobs().acquire(shape, from, to);
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (!job) return false;

    stageIn(src, from, in, job->in, src.getIsTopDown() != dst.getIsTopDown());
    const int lines = sws_scale(job->context, job->in.plane, job->in.linesize, 0, shape.srcHeight,
                                job->out.plane, job->out.linesize);
    const bool done = lines > 0;
    if (done) stageOut(job->out, to, out, dst);
    jobs().release(std::move(job));
    return done;
}

class KvSwscaleConvert final : public iImageConvert {
public:
    const char* getComponentName() const override { return "swscale"; }
    bool convert(const Surface& src, Surface& dst) override { return transfer(src, dst); }
    bool resize(const Surface& src, Surface& dst) override { return transfer(src, dst); }
};

}  // namespace

extern "C" KV_EXPORT void kvRegisterPluginResources(KvPluginRegistry* registry)
{
    // One instance for the life of the process, whichever manager asks.
    static KvSwscaleConvert* const plugin = new KvSwscaleConvert;
    registry->addResource(plugin);
}
