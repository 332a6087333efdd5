// The searches of an auto-crop, and the grey preview of a YUV picture.

#include <cstdint>
#include <cstring>

#include "ole/image/KvSurface.h"
#include "ole/platform/os/KvAssert.h"
#include "ole/platform/settings/KvSettings.h"

namespace Kv::Image {

namespace {

// A colour component counts as black while it is not above this.
const int auto_crop_tolerance = config_int("auto_crop_tolerance", 32);

constexpr std::uint32_t kTransparentBelow = 0x03000000u;

// An address past the first line, also on a surface without memory (whose holder check then
// finds no room).
inline const unsigned char* at(const unsigned char* base, std::size_t offset) noexcept
{
    return reinterpret_cast<const unsigned char*>(reinterpret_cast<std::uintptr_t>(base) + offset);
}

inline std::uint32_t wordAt(const unsigned char* p) noexcept
{
    std::uint32_t w;
    std::memcpy(&w, p, 4);
    return w;
}

inline bool hasColour(const unsigned char* p, int tolerance) noexcept
{
    return p[0] > tolerance || p[1] > tolerance || p[2] > tolerance;
}

}  // namespace

int autoCropTolerance() { return auto_crop_tolerance; }

bool Surface::horizLineIsBlack(unsigned int y)
{
    const unsigned char* p = at(getDataPtr(), y * getStride());
    // Packed 4-byte pixels along one line, within the holder.
    const std::size_t pixels = std::min<std::size_t>(getWidth(), holderBytesFrom(p) / 4);
    for (std::size_t i = 0; i < pixels; ++i, p += 4)
        if (hasColour(p, auto_crop_tolerance)) return true;
    return false;
}

bool Surface::vertLineIsBlack(unsigned int x)
{
    const unsigned char* p = at(getDataPtr(), std::size_t(x) * 4);
    const std::size_t step = std::size_t(getWidth()) * 4;  // not the stride, as callers expect
    const unsigned int height = getHeight();
    for (unsigned int i = 0; i < height; ++i, p = at(p, step)) {
        if (holderBytesFrom(p) < 4) break;
        if (hasColour(p, auto_crop_tolerance)) return true;
    }
    return false;
}

namespace {

// How many lines and columns of a picture start inside its memory. The searches skip the
// rest, which can hold nothing, so that descriptors claiming more than the memory (a wrapped
// 32-bit product, a setWidth) cost no more than the memory itself.
struct Reach {
    unsigned int lines;
    unsigned int columns;
};

Reach reachOf(const Surface& s)
{
    const std::size_t room = s.holderBytesFrom(s.getDataPtr());
    const std::size_t stride = s.getStride();
    const std::size_t lines = room == 0 ? 0 : stride == 0 ? 1 : (room + stride - 1) / stride;
    const std::size_t columns = (room + 3) / 4;
    return {unsigned(std::min<std::size_t>(s.getHeight(), lines)),
            unsigned(std::min<std::size_t>(s.getWidth(), columns))};
}

}  // namespace

void Surface::findNonBlackArea(int& left, int& bottom, int& right, int& top)
{
    left = bottom = right = top = 0;
    const int height = int(getHeight());
    const Reach reach = reachOf(*this);
    const int lines = int(reach.lines), columns = int(reach.columns);
    for (int y = 0; y < lines; ++y)
        if (horizLineIsBlack(unsigned(y))) {
            top = height - y;
            break;
        }
    for (int y = lines - 1; y >= 0; --y)
        if (horizLineIsBlack(unsigned(y))) {
            bottom = height - y;
            break;
        }
    for (int x = 0; x < columns; ++x)
        if (vertLineIsBlack(unsigned(x))) {
            left = x;
            break;
        }
    for (int x = columns - 1; x >= 0; --x)
        if (vertLineIsBlack(unsigned(x))) {
            right = x;
            break;
        }
}

bool Surface::horizLineIsTransparent(unsigned int y) const
{
    if (getWidth() == 0) return true;
    const unsigned char* p = at(getDataPtr(), y * getStride());
    const std::size_t pixels = std::min<std::size_t>(getWidth(), holderBytesFrom(p) / 4);
    for (std::size_t i = 0; i < pixels; ++i, p += 4)
        if (wordAt(p) >= kTransparentBelow) return false;
    return true;
}

bool Surface::vertLineIsTransparent(unsigned int x, unsigned int startY, unsigned int endY) const
{
    KV_ASSERT(startY <= endY);
    if (startY == endY) return true;
    const unsigned int stride = getStride();
    // Reads the stride: one word a line, from startY up to endY.
    for (unsigned int y = startY; y < endY; ++y) {
        const unsigned char* p = at(getDataPtr(), std::size_t(y * stride) + std::size_t(x) * 4);
        if (holderBytesFrom(p) < 4) break;
        if (wordAt(p) >= kTransparentBelow) return false;
    }
    return true;
}

TopDownRect Surface::findNonTransparentArea() const
{
    KV_ASSERT(getDataFormat() == ARGB);
    const int width = int(getWidth());
    const int height = int(getHeight());
    const Reach reach = reachOf(*this);
    const int lines = int(reach.lines), columns = int(reach.columns);
    TopDownRect r(0, 0, width, height);
    while (r.top < lines && horizLineIsTransparent(unsigned(r.top))) ++r.top;
    if (r.top >= lines) return TopDownRect();  // lines beyond the memory hold nothing either
    r.bottom = lines;
    while (r.bottom > r.top && horizLineIsTransparent(unsigned(r.bottom - 1))) --r.bottom;
    while (r.left < columns && vertLineIsTransparent(unsigned(r.left), unsigned(r.top), unsigned(r.bottom)))
        ++r.left;
    if (r.left >= columns) r.left = width;
    r.right = std::max(r.left, columns);
    while (r.right > r.left && vertLineIsTransparent(unsigned(r.right - 1), unsigned(r.top), unsigned(r.bottom)))
        --r.right;
    return r;
}

Surface yuvToARGB(const Surface& source)
{
    Surface out;
    out.init(source.getWidth(), source.getHeight(), ARGB, true, 0, 0, 0);
    if (out.getWidth() != source.getWidth() || out.getHeight() != source.getHeight()) return out;
    std::uint32_t grey[256];
    for (std::uint32_t v = 0; v < 256; ++v) grey[v] = 0xFF000000u | v << 16 | v << 8 | v;

    const unsigned int width = source.getWidth();
    const unsigned int height = source.getHeight();
    const unsigned int stride = source.getStride();
    const unsigned char* in = source.getDataPtr();
    unsigned char* to = out.getDataPtr();
    if (!in || !to) return out;
    // The source reads its stride; the destination is written packed, 4 bytes a pixel.
    for (unsigned int y = 0; y < height; ++y, in = at(in, stride)) {
        const std::size_t inRoom = source.holderBytesFrom(in);
        const std::size_t outRoom = out.holderBytesFrom(to) / 4;
        std::size_t n = std::min<std::size_t>(width, outRoom);
        if (inRoom == 0) break;
        n = std::min<std::size_t>(n, (inRoom + 1) / 2);
        for (std::size_t x = 0; x < n; ++x, to += 4) std::memcpy(to, &grey[in[2 * x]], 4);
        if (n < width) break;
    }
    return out;
}

void RGBtoYUV(unsigned char, unsigned char, unsigned char, unsigned char&, char&, char&) { KV_ASSERT(false); }

void YUVtoRGB(unsigned char, char, char, unsigned char&, unsigned char&, unsigned char&) { KV_ASSERT(false); }

}  // namespace Kv::Image
