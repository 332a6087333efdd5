// Pixels from an open Cineon or DPX file into a Surface: the log-to-linear tables, the 10-bit
// word readers with their whole-number thinning, the plain DPX reads and the 4:2:2 YUV reader.
// Every function here is called with the file standing at the image data. See cineon.h.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "ole/image/cineon.h"
#include "ole/image/cineonInternal.h"
#include "ole/platform/os/KvAssert.h"
#include "ole/platform/settings/KvLog.h"

using namespace Kv::Image;
using Kv::Image::CineonDetail::bytesAhead;
using Kv::Image::CineonDetail::dpxSettings;
using Kv::Image::CineonDetail::pictureFits;

namespace {

constexpr Format kPacked10BitRGB = Format(35);

// Round half away from zero, into 32 bits. The tables' values lie between 0 and 255 for any
// levels; the bounds only keep a conversion defined.
std::int32_t roundToInt(double x)
{
    x = x > 0.0 ? x + 0.5 : x - 0.5;
    if (!(x > -2147483648.0)) return std::numeric_limits<std::int32_t>::min();
    if (!(x < 2147483648.0)) return std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(x);
}

// The display value of every code. Linear codes scale by `linearFactor`, which is 1/1024 (not
// 1/1023) for 10 bits: 1023 reaches 255 only by rounding. Logarithmic codes follow the film
// density curve: black and below give 0, white and above 255, and the codes between them rise
// by a power of the density, lifted so that black lands on 0.
void buildTable(std::uint32_t* table, std::size_t entries, double linearFactor, double black,
                double white, CineonFileBase::PixelTransfer encoding)
{
    using PT = CineonFileBase::PixelTransfer;
    constexpr double K = 1.0 / 300.0;  // density per code value
    constexpr double G = 6.0 / 17.0;   // display gamma over film gamma
    std::fill(table, table + entries, 0u);
    if (encoding == PT::Linear) {
        for (std::size_t i = 0; i < entries; ++i)
            table[i] = std::uint32_t(roundToInt(double(i) * linearFactor * 255.0));
        return;
    }
    if (encoding != PT::Logarithmic) return;

    std::size_t i = 0;
    for (; i < entries && double(i) < black; ++i) table[i] = 0;
    if (black < white) {
        const double gain = 255.0 / (1.0 - std::pow(std::pow(10.0, (black - white) * K), G));
        const double offset = gain - 255.0;
        for (; i < entries && double(i) < white; ++i) {
            const double p = std::pow(std::pow(10.0, (double(i) - white) * K), G);
            table[i] = std::uint32_t(roundToInt(p * gain - offset));
        }
    }
    for (; i < entries; ++i) table[i] = 255;
}

inline std::uint32_t load32(const unsigned char* p)
{
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

inline void store32(unsigned char* p, std::uint32_t v) { std::memcpy(p, &v, 4); }

// One pixel from three table look-ups, opaque.
struct TablePixel {
    const std::uint32_t* table;
    CineonFileBase::ComponentShiftSizes shifts;

    std::uint32_t operator()(std::uint32_t word) const
    {
        const std::uint32_t red = table[(word >> shifts.redShift) & 0x3FF];
        const std::uint32_t green = table[(word >> shifts.greenShift) & 0x3FF];
        const std::uint32_t blue = table[(word >> shifts.blueShift) & 0x3FF];
        return 0xFF000000u | red << 16 | green << 8 | blue;
    }
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Thinning and the line readers

unsigned int CineonFileBase::calcPixelStep(unsigned int target) const
{
    const unsigned int width = getWidth();
    if (width < target || target > width / 2 || (width & 1) != 0) return 1;
    unsigned int step = 2;
    unsigned int half = width / 2;
    // A width of 0 halves for ever; it has no pixels to thin, so 2 does.
    while (half != 0 && half / 2 >= target && (half & 1) == 0) {
        step *= 2;
        half /= 2;
    }
    return step;
}

// Reads the stored lines one stride at a time, keeps one line and one pixel in `step`, and
// turns each kept 32-bit word into one pixel of the result. The lines of the result lie packed
// from its first byte. Words that would lie past the end of a stride (a stride that the
// header's 16-bit arithmetic cut short) are not read: those pixels stay 0.
template <class Pixel>
Surface CineonFileBase::convertLines(XY<int> size, Format format, Pixel pixel)
{
    const unsigned int width = getWidth();
    const unsigned int height = getHeight();
    const unsigned int stride = getStride();
    const unsigned int step = calcPixelStep(static_cast<unsigned int>(std::min(size.x, size.y)));
    const unsigned int outWidth = width / step;
    const unsigned int outHeight = height / step;
    if (!pictureFits(outWidth, outHeight, 32, bytesAhead(*file))) return Surface();
    Surface result(outWidth, outHeight, format, true, 0, 0, 0);
    unsigned char* out = result.getDataPtr();
    const std::size_t room = result.holderBytesFrom(out) / 4;
    if (room == 0) return result;  // no pixels: nothing to read them into

    std::vector<unsigned char> line(stride);
    const std::size_t pixelBytes = std::size_t(step) * 4;
    const std::size_t inLine = stride >= 4 ? std::min<std::size_t>(outWidth, (stride - 4) / pixelBytes + 1) : 0;
    const std::uint64_t skipped = std::uint64_t(step - 1) * stride;
    const bool reverse = needsReorder == 1;
    for (unsigned int y = 0; y < outHeight; ++y) {
        const std::size_t first = std::size_t(y) * outWidth;
        if (first >= room) break;
        const std::size_t count = std::min<std::size_t>(outWidth, room - first);
        const std::size_t words = std::min(count, inLine);
        file->read(line.data(), stride);
        unsigned char* o = out + first * 4;
        for (std::size_t x = 0; x < words; ++x) {
            std::uint32_t word = load32(line.data() + x * pixelBytes);
            if (reverse) word = __builtin_bswap32(word);
            store32(o + x * 4, pixel(word));
        }
        if (words < count) std::memset(o + words * 4, 0, (count - words) * 4);
        if (step != 1) file->seek(file->tell() + skipped);
    }
    return result;
}

Surface CineonFileBase::do10BitTo8BitConversion(XY<int> size, PixelTransfer encoding)
{
    KV_ASSERT(encoding == Logarithmic || encoding == Linear);
    const auto& settings = dpxSettings();
    std::uint32_t table[1024];
    buildTable(table, 1024, 0.0009765625, settings.blackLevel, settings.whiteLevel, encoding);
    return convertLines(size, ARGB, TablePixel{table, getComponentShiftSizes()});
}

// The table is built for 16-bit codes, but the pixels are still taken as 10-bit words: only its
// first 1024 entries are ever looked at.
Surface CineonFileBase::do16BitTo8BitConversion(XY<int> size, PixelTransfer encoding)
{
    KV_ASSERT(encoding == Logarithmic || encoding == Linear);
    const auto& settings = dpxSettings();
    // 256 KiB: on the heap, and the call's own.
    std::vector<std::uint32_t> table(65536);
    const double black = double(int(settings.blackLevel) * 64);
    const double white = double(int(settings.whiteLevel) * 64);
    buildTable(table.data(), table.size(), 1.52587890625e-05, black, white, encoding);
    return convertLines(size, ARGB, TablePixel{table.data(), getComponentShiftSizes()});
}

Surface CineonFileBase::do10BitTo10BitConversion(XY<int> size, PixelTransfer)
{
    // The stored components stand two bits higher than in format 35.
    return convertLines(size, kPacked10BitRGB, [](std::uint32_t word) { return (word >> 2) | 0xC0000000u; });
}

// ---------------------------------------------------------------------------------------------
// DPX RGB

Surface DPXFile::loadRGB(const Core::Data& outputFormat, PixelTransfer)
{
    const XY<int> size(int(outputFormat.getWidth()), int(outputFormat.getHeight()));
    const unsigned int depth = getBitDepth();
    const ImageElement& element = imageInfo_.chans_[0];
    const auto& settings = dpxSettings();

    if (depth == 10) {
        if (settings.forceLinear) return do10BitTo8BitConversion(size, Linear);
        if (settings.forceLog) return do10BitTo8BitConversion(size, Logarithmic);
        if (element.transfer == Logarithmic) return do10BitTo8BitConversion(size, Logarithmic);
        // Only linear data keeps its ten bits, and only when the caller can take them.
        const ComponentShiftSizes shifts = getComponentShiftSizes();
        if (shifts.blueShift == 2 && shifts.greenShift == 12 && shifts.redShift == 22 &&
            (element.descriptor == DescriptorRGB || element.descriptor == DescriptorRGBA) &&
            outputFormat.getBitsPerComponent() != 8 && outputFormat.getDataFormat() != ARGB)
            return do10BitTo10BitConversion(size, Linear);
        return do10BitTo8BitConversion(size, Linear);
    }

    Surface surface;
    if (depth == 16 && element.transfer == Logarithmic) {
        // Logarithmic 16-bit data is not handled: the 10-bit reader makes what it can of it,
        // and the plain read below goes on from where that stopped.
        surface = do16BitTo8BitConversion(size, Logarithmic);
        KV_ASSERT(false);
    } else if (depth != 16 && depth != 8) {
        return surface;
    }
    return plainRead(outputFormat, surface);
}

// The stored components as they lie, into RGB or ARGB of the stored depth; a byte-reversed
// 16-bit file is then put in host order, or cut to its high bytes for an 8-bit caller.
Surface DPXFile::plainRead(const Core::Data& outputFormat, Surface surface)
{
    const unsigned int depth = getBitDepth();
    const unsigned int width = getWidth();
    const unsigned int height = getHeight();
    const std::uint64_t available = bytesAhead(*file);
    const unsigned char descriptor = imageInfo_.chans_[0].descriptor;
    const Format format = descriptor == DescriptorRGB ? RGB : descriptor == DescriptorRGBA ? ARGB : InvalidFormat;
    if (format != InvalidFormat) {
        if (!pictureFits(width, height, getBitsPerPixel(format, static_cast<unsigned short>(depth)), available))
            return Surface();
        surface.init(width, height, format, true, static_cast<unsigned short>(depth), 0, 0);
    }

    // End-of-line padding is not considered: the lines are taken as packed.
    unsigned char* data = surface.getDataPtr();
    const std::size_t bytes = surface.valid() ? std::min<std::size_t>(surface.getMemHolder()->getSize(),
                                                                      surface.holderBytesFrom(data))
                                              : 0;
    if (bytes != 0) {
        const unsigned int got = file->read(data, unsigned(bytes));
        if (got < bytes) std::memset(data + got, 0, bytes - got);  // a file cut short
    }
    if (needsReorder == 0) return surface;

    const unsigned int outBits = outputFormat.getBitsPerComponent();
    if (depth == 16 && outBits == 8) {
        // The high byte of each big-endian sample is its first.
        const Format kept = surface.getDataFormat();
        if (!pictureFits(width, height, getBitsPerPixel(kept, 8), available)) return Surface();
        Surface narrow(width, height, kept, true, 8, 0, 0);
        unsigned char* to = narrow.getDataPtr();
        const std::size_t room = narrow.holderBytesFrom(to);
        const std::uint64_t samples = std::uint64_t(height) * width * surface.getBitsPerPixel() / 16;
        const std::size_t n = std::size_t(std::min<std::uint64_t>({samples, room, bytes / 2}));
        for (std::size_t i = 0; i < n; ++i) to[i] = data[2 * i];
        if (n < room) std::memset(to + n, 0, room - n);
        return narrow;
    }
    if (depth == 16 && outBits == 16) {
        // Three samples a pixel, even when the picture has four.
        const std::uint64_t samples = std::uint64_t(width) * 3 * height;
        const std::size_t n = std::size_t(std::min<std::uint64_t>(samples, bytes / 2));
        for (std::size_t i = 0; i < n; ++i) std::swap(data[2 * i], data[2 * i + 1]);
        return surface;
    }
    // An 8-bit file needs no reversal.
    KV_ASSERT(false);
    return surface;
}

// ---------------------------------------------------------------------------------------------
// DPX YUV

Surface DPXFile::loadYUV(const Core::Data& outputFormat)
{
    const XY<int> size(int(outputFormat.getWidth()), int(outputFormat.getHeight()));
    if (getBitDepth() == 10) return loadYUV10Bit(size);
    LogBoth("DPXFile::loadYUV() bit-depth unsupported\n");
    return Surface();
}

// Groups of six pixels follow one another with no regard to lines, and the count of groups is
// kept in 16 bits: a picture of 393216 pixels or more converts only that count modulo 65536,
// and the rest of it stays 0.
Surface DPXFile::loadYUV10Bit(const XY<int>&)
{
    constexpr std::size_t kGroupBytes = 16;
    constexpr std::size_t kGroupsARead = 4096;
    const unsigned int width = static_cast<unsigned short>(getWidth());
    const unsigned int height = static_cast<unsigned short>(getHeight());
    const unsigned int groups = static_cast<unsigned short>((width * height) / 6);
    if (!pictureFits(width, height, 32, bytesAhead(*file))) return Surface();
    Surface surface(width, height, kPacked10BitRGB, true, getBitDepth(), 0, 0);
    unsigned char* out = surface.getDataPtr();
    const std::size_t room = surface.holderBytesFrom(out);
    if (room == 0) return surface;
    std::memset(out, 0, room);

    // The groups come from the file many at a time. Read one by one, a group that the file
    // ends in keeps the bytes of the one before where the file gave none, and so does each
    // group after it; `group` keeps them here the same way.
    std::vector<unsigned char> chunk(std::min<std::size_t>(groups, kGroupsARead) * kGroupBytes);
    unsigned int group[4] = {};
    YUVTriple<unsigned short> triples[6];
    std::size_t done = 0;
    while (done < groups && (done + 1) * 24 <= room) {
        const std::size_t now = std::min<std::size_t>(groups - done, kGroupsARead);
        const std::size_t got = file->read(chunk.data(), unsigned(now * kGroupBytes));
        for (std::size_t g = 0; g < now && (done + 1) * 24 <= room; ++g, ++done) {
            const std::size_t at = g * kGroupBytes;
            if (at < got) std::memcpy(group, chunk.data() + at, std::min(kGroupBytes, got - at));
            YUVTriplesFromYUYVBuffer(group, triples);
            for (int p = 0; p < 6; ++p) store32(out + done * 24 + std::size_t(p) * 4, make10BitDword(triples[p]));
        }
    }
    return surface;
}

void YUVTriplesFromYUYVBuffer(unsigned int* group, YUVTriple<unsigned short>* triples)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(group);
    unsigned short c[12];
    for (int n = 0; n < 4; ++n) {
        const unsigned char* b = bytes + 4 * n;
        const std::uint32_t word = std::uint32_t(b[0]) << 24 | std::uint32_t(b[1]) << 16 |
                                   std::uint32_t(b[2]) << 8 | std::uint32_t(b[3]);
        c[3 * n] = static_cast<unsigned short>((word >> 2) & 0x3FF);
        c[3 * n + 1] = static_cast<unsigned short>((word >> 12) & 0x3FF);
        c[3 * n + 2] = static_cast<unsigned short>((word >> 22) & 0x3FF);
    }
    // Each pair of pixels shares one u and one v, with no interpolation between pairs.
    triples[0] = {c[1], c[2], c[0]};
    triples[1] = {c[5], c[2], c[0]};
    triples[2] = {c[3], c[4], c[8]};
    triples[3] = {c[7], c[4], c[8]};
    triples[4] = {c[11], c[6], c[10]};
    triples[5] = {c[9], c[6], c[10]};
}

unsigned int make10BitDword(YUVTriple<unsigned short>& triple)
{
    // The whole range 0 to 1023 is taken as luma; chroma is centred on 512.
    const float y = float(triple.y) / 1023.0f;
    const float u = float(int(triple.u) - 512) / 1023.0f;
    const float v = float(int(triple.v) - 512) / 1023.0f;
    const float red = (v * 1.403f + y) * 1023.0f;
    const float green = ((y - 0.344f * u) - 0.714f * v) * 1023.0f;
    const float blue = (u * 1.77f + y) * 1023.0f;
    const auto clamp10 = [](float value) {
        const int n = static_cast<int>(value);
        return std::uint32_t(n < 0 ? 0 : n > 1023 ? 1023 : n);
    };
    return clamp10(red) << 20 | clamp10(green) << 10 | clamp10(blue);
}
