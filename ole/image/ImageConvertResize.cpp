// ImageConverter, sizes: the plug-in route, the whole-number pixel skip, the aspect-preserving
// fits, the routes through a host image's renderer, and the grey host image.
//
// The library has no scaling filter of its own: a change of size is a plug-in's or the host
// renderer's business. The walks here that follow the descriptors without strides (the skip,
// the same-size copy, the grey image) stop where either picture's memory ends.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "ole/image/ImageConvert.h"
#include "ole/image/KvImageWrapper.h"
#include "ole/image/iImageConvert.h"
#include "ole/platform/media/KvMediaServices.h"
#include "ole/platform/os/KvAssert.h"
#include "ole/platform/os/OS.h"
#include "ole/platform/settings/KvLog.h"

using namespace Kv::Image;

namespace {

// Bytes from `p` to the end of the memory behind a picture. A picture of the host's own that is
// not a Surface has no holder to ask, and its stride times height is all there is to go by.
std::size_t roomFrom(const Base& picture, const unsigned char* p)
{
    if (const auto* surface = dynamic_cast<const Surface*>(&picture)) return surface->holderBytesFrom(p);
    const unsigned char* begin = picture.getDataPtr();
    if (!begin || p < begin) return 0;
    const std::size_t offset = std::size_t(p - begin);
    const std::size_t size = picture.getImageSize();
    return offset < size ? size - offset : 0;
}

// The bytes a host image's guard vouches for: its stride times its height.
std::size_t guardBytes(iPixelGuard& guard)
{
    const XY<int> size = guard.getSize();
    return size.y > 0 ? std::size_t(guard.getStride()) * std::size_t(size.y) : 0;
}

// Where a picture of `src` size lands, shape kept, inside `dst` size: the letterbox (full
// width, `extent` lines) or the pillarbox (full height, `extent` columns).
struct Fit {
    bool letterbox = false;
    int extent = 0;
};

// All ratios in double precision; the new extent is rounded half away from zero. A smaller
// source in both directions is enlarged; otherwise it is reduced.
Fit fitInside(double srcWidth, double srcHeight, double dstWidth, double dstHeight)
{
    Fit fit;
    double value;
    if (srcHeight >= dstHeight || srcWidth >= dstWidth) {
        const double xr = srcWidth / dstWidth;
        const double yr = srcHeight / dstHeight;
        fit.letterbox = xr > yr;
        value = fit.letterbox ? srcHeight / xr : srcWidth / yr;
    } else {
        const double xu = dstWidth / srcWidth;
        const double yu = dstHeight / srcHeight;
        fit.letterbox = !(xu > yu);
        value = fit.letterbox ? xu * srcHeight : yu * srcWidth;
    }
    fit.extent = int(value > 0 ? value + 0.5 : value - 0.5);
    return fit;
}

// The target rectangle of a host fit: left, top, right, bottom.
Kv::Rectangle<int> fitRectangle(const XY<int>& source, const XY<int>& target)
{
    const Fit fit = fitInside(source.x, source.y, target.x, target.y);
    if (fit.letterbox) {
        const int top = (target.y - fit.extent) / 2;
        return {0, top, target.x, top + fit.extent};
    }
    const int left = (target.x - fit.extent) / 2;
    return {left, 0, left + fit.extent, target.y};
}

// 32 bits, wrapping as a 32-bit product does: a zero means no area at all.
std::uint32_t area32(const Kv::Rectangle<int>& r)
{
    const auto width = std::uint32_t(std::llabs(std::int64_t(r.x2) - r.x1));
    const auto height = std::uint32_t(std::llabs(std::int64_t(r.y2) - r.y1));
    return width * height;
}

}  // namespace

bool ImageConverter::resize(const Surface& src, Surface& dst) { return iImageConvert::doResize(src, dst); }

bool ImageConverter::canPerformPixelSkipResize(unsigned int srcWidth, unsigned int srcHeight,
                                               unsigned int dstWidth, unsigned int dstHeight)
{
    if (dstWidth == 0 || dstHeight == 0) return false;
    if (!(dstWidth < srcWidth) || !(dstHeight < srcHeight)) return false;
    if (srcWidth % dstWidth != 0 || srcHeight % dstHeight != 0) return false;
    return srcWidth / dstWidth == srcHeight / dstHeight;
}

// Packed walk, no strides: every skip-th pixel of every skip-th line, from the first. The
// heights are not consulted; the walk ends early where either picture's memory does.
bool ImageConverter::pixelSkipResize(const Base& src, Base& dst)
{
    if (src.getBitsPerPixel() != 32 || dst.getBitsPerPixel() != 32) return false;
    const unsigned char* in = src.getDataPtr();
    unsigned char* out = dst.getDataPtr();
    if (!in || !out) return false;
    const unsigned int dstWidth = dst.getWidth();
    if (dstWidth == 0) return true;

    const std::int64_t skip = src.getWidth() / dstWidth;
    const std::int64_t lineStep = std::int64_t(src.getWidth()) * (skip - 1);
    const std::int64_t inPixels = std::int64_t(roomFrom(src, in) / 4);
    const std::int64_t outPixels = std::int64_t(roomFrom(dst, out) / 4);
    std::int64_t from = 0;
    std::int64_t to = 0;
    for (unsigned int y = 0; y < dst.getHeight(); ++y) {
        for (unsigned int x = 0; x < dstWidth; ++x) {
            if (from < 0 || from >= inPixels || to >= outPixels) return true;
            std::memcpy(out + to * 4, in + from * 4, 4);
            ++to;
            from += skip;
        }
        from += lineStep;
    }
    return true;
}

void ImageConverter::aspectPreservingResize(const Surface& src, Surface& dest)
{
    KV_ASSERT(src.getDataFormat() == dest.getDataFormat());
    const unsigned int srcWidth = src.getWidth();
    const unsigned int srcHeight = src.getHeight();
    const unsigned int dstWidth = dest.getWidth();
    const unsigned int dstHeight = dest.getHeight();

    if (srcWidth == dstWidth && srcHeight == dstHeight) {
        // Packed copy of the destination's image size, no strides.
        const unsigned char* in = src.getDataPtr();
        unsigned char* out = dest.getDataPtr();
        if (!in || !out) return;
        const std::size_t bytes = std::min<std::size_t>(
            {dest.getImageSize(), src.holderBytesFrom(in), dest.holderBytesFrom(out)});
        std::memmove(out, in, bytes);
        return;
    }
    // Nothing fits into, or out of, a picture of no size.
    if (!srcWidth || !srcHeight || !dstWidth || !dstHeight) return;

    const Fit fit = fitInside(srcWidth, srcHeight, dstWidth, dstHeight);
    unsigned char* base = dest.getDataPtr();
    if (!base || fit.extent <= 0) return;
    const unsigned short stride = static_cast<unsigned short>(dest.getStride());
    const unsigned short bpp = dest.getBitsPerPixel();

    std::int64_t offset;
    unsigned int width = dstWidth;
    unsigned int height = dstHeight;
    if (fit.letterbox) {
        offset = std::int64_t((int(dstHeight) - fit.extent) / 2) * stride;
        height = unsigned(fit.extent);
    } else {
        offset = std::int64_t((int(dstWidth) - fit.extent) / 2) * bpp / 8;
        width = unsigned(fit.extent);
    }
    unsigned char* first = base + offset;
    const std::size_t room = offset >= 0 ? dest.holderBytesFrom(first) : 0;
    if (room == 0) return;

    // The sub-picture's memory is what lies from its first byte to the end of dest's, and it
    // keeps dest alive while it is used.
    Surface sub;
    sub.init(width, height, dest.getDataFormat(), false, dest.getBitsPerComponent(), bpp, stride);
    sub.setDataPtr(MemHolderPtr(new AttachedObject<Surface>(
        first, unsigned(std::min<std::size_t>(room, std::numeric_limits<unsigned int>::max())), dest)));
    resize(src, sub);  // a refusal leaves the sub-picture as it was
}

bool ImageConverter::resize(const std::pair<const Surface*, TopDownRect>& src, Surface& dst)
{
    Kv::Ptr<iHostImage> target(new KvImageWrapper(dst));
    Kv::Ptr<iGraphicPrimitivesRenderer> renderer = target->getPrimitivesRenderer(true);
    if (!renderer) {
        Log("ImageConverter::resize() failed\n");
        return false;
    }
    if (src.first) {
        const Kv::Ptr<iImageBase> source(new KvImageWrapper(*src.first));
        const TopDownRect& r = src.second;
        const Kv::Ptr<iGraphicPrimitive> description(new ImageDescription(
            source, {0, 0, int(dst.getWidth()), int(dst.getHeight())}, {r.left, r.top, r.right, r.bottom},
            0, 1.0f));
        renderer->draw(description, iGraphicPrimitivesRenderer::Copy);
    }
    return true;
}

Kv::Ptr<iHostImage> ImageConverter::resize(Kv::Ptr<iHostImage> src, const XY<int>& size, Kv::Rectangle<int> rect)
{
    if (!src) return {};
    iMediaServices* media = OS()->mediaServices();
    if (!media) return {};
    Kv::Ptr<iHostImage> result = media->createImage(size);
    if (!result) return {};
    Kv::Ptr<iGraphicPrimitivesRenderer> renderer = result->getPrimitivesRenderer(true);
    if (!renderer) return {};
    if (area32(rect) == 0) {
        const XY<int> whole = src->getSize();
        rect = Kv::Rectangle<int>(0, 0, whole.x, whole.y);
    }
    const Kv::Ptr<iGraphicPrimitive> description(
        new ImageDescription(src, {0, 0, size.x, size.y}, rect, 0, 1.0f));
    renderer->draw(description, iGraphicPrimitivesRenderer::Copy);
    return result;
}

Kv::Ptr<iHostImage> ImageConverter::aspectPreservingResize(Kv::Ptr<iHostImage> src, const XY<int>& size)
{
    if (!src) return {};
    iMediaServices* media = OS()->mediaServices();
    if (!media) return {};
    Kv::Ptr<iHostImage> result = media->createImage(size);
    if (!result) return {};

    const XY<int> srcSize = src->getSize();
    if (srcSize == size) {
        Kv::Ptr<iPixelGuard> to = result->lock();
        Kv::Ptr<iPixelGuard> from = src->lock();
        if (to && from && to->getPixels() && from->getPixels()) {
            const std::size_t bytes = std::min(std::size_t(to->getStride()) * std::size_t(std::max(size.y, 0)),
                                               std::min(guardBytes(*to), guardBytes(*from)));
            std::memmove(to->getPixels(), from->getPixels(), bytes);
        }
        return result;
    }

    Kv::Ptr<iGraphicPrimitivesRenderer> renderer = result->getPrimitivesRenderer(true);
    if (!renderer) return {};
    if (srcSize.x <= 0 || srcSize.y <= 0 || size.x <= 0 || size.y <= 0) return result;
    const Kv::Ptr<iGraphicPrimitive> description(new ImageDescription(
        src, fitRectangle(srcSize, size), {0, 0, srcSize.x, srcSize.y}, 0, 1.0f));
    renderer->draw(description, iGraphicPrimitivesRenderer::Copy);
    return result;
}

// Packed walk of 32-bit pixels, no strides.
Kv::Ptr<iHostImage> ImageConverter::makeGreyscaleImage(Kv::Ptr<iHostImage> src)
{
    if (!src) return {};
    iMediaServices* media = OS()->mediaServices();
    if (!media) return {};
    const XY<int> size = src->getSize();
    Kv::Ptr<iHostImage> result = media->createImage(size);
    if (!result) return {};
    Kv::Ptr<iPixelGuard> to = result->lock();
    Kv::Ptr<iPixelGuard> from = src->lock();
    if (!to || !from || !to->getPixels() || !from->getPixels()) return result;

    const std::size_t wanted = size.x > 0 && size.y > 0 ? std::size_t(size.x) * std::size_t(size.y) * 4 : 0;
    const std::size_t bytes = std::min({wanted, guardBytes(*to), guardBytes(*from)}) & ~std::size_t(3);
    unsigned char* out = to->getPixels();
    std::memmove(out, from->getPixels(), bytes);
    // No luma weights, and a quarter of the sum: white comes out at three quarters.
    for (std::size_t i = 0; i < bytes; i += 4) {
        const auto grey = static_cast<unsigned char>((out[i] + out[i + 1] + out[i + 2]) >> 2);
        out[i] = out[i + 1] = out[i + 2] = grey;
    }
    return result;
}
