// The in-memory host image and its renderer. The renderer resamples with OpenImageIO's resize
// (Lanczos, three lobes) on premultiplied colour, so that transparent pixels lend no colour to
// their neighbours.

#include "ole/platform/media/KvMemoryImage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

namespace {

// The largest picture made here, in bytes: strides and sizes stay within 32 bits.
constexpr std::uint64_t maxBytes = std::uint64_t(1) << 31;

class MemoryGuard final : public iPixelGuard {
public:
    explicit MemoryGuard(const Kv::Ptr<KvMemoryImage>& image) : image_(image) {}
    const unsigned char* getPixels() const override { return image_->pixels(); }
    unsigned char* getPixels() override { return image_->pixels(); }
    unsigned int getStride() const override { return image_->getStride(); }
    XY<int> getSize() const override { return image_->getSize(); }

private:
    Kv::Ptr<KvMemoryImage> image_;
};

// Left, top, right, bottom with left <= right and top <= bottom.
struct Box {
    int left = 0, top = 0, right = 0, bottom = 0;

    static Box from(const Kv::Rectangle<int>& r)
    {
        return {std::min(r.x1, r.x2), std::min(r.y1, r.y2), std::max(r.x1, r.x2), std::max(r.y1, r.y2)};
    }
    int width() const { return right - left; }
    int height() const { return bottom - top; }
    bool empty() const { return right <= left || bottom <= top; }
    Box intersect(const Box& o) const
    {
        return {std::max(left, o.left), std::max(top, o.top), std::min(right, o.right),
                std::min(bottom, o.bottom)};
    }
};

// An OpenImageIO spec of four float channels, alpha last, with `data` as its data window and
// `full` as the window that maps onto the other picture's.
OIIO::ImageSpec floatSpec(const Box& data, const Box& full)
{
    OIIO::ImageSpec spec(data.width(), data.height(), 4, OIIO::TypeDesc::FLOAT);
    spec.x = data.left;
    spec.y = data.top;
    spec.full_x = full.left;
    spec.full_y = full.top;
    spec.full_width = full.width();
    spec.full_height = full.height();
    spec.alpha_channel = 3;
    return spec;
}

unsigned char toByte(float v)
{
    return static_cast<unsigned char>(std::clamp(v * 255.0f + 0.5f, 0.0f, 255.0f));
}

class MemoryImageRenderer final : public iGraphicPrimitivesRenderer {
public:
    explicit MemoryImageRenderer(const Kv::Ptr<KvMemoryImage>& target) : target_(target) {}

    bool draw(const Kv::Ptr<iGraphicPrimitive>& primitive, int mode) override
    {
        if (mode != Copy) return false;
        const auto* description = dynamic_cast<const ImageDescription*>(primitive.get());
        if (!description || !description->image) return false;
        auto* source = dynamic_cast<iHostImage*>(description->image.get());
        if (!source || source->getBitsPerPixel() != 32) return false;
        const Kv::Ptr<iPixelGuard> guard = source->lock();
        if (!guard || !guard->getPixels()) return false;

        const XY<int> sourceSize = source->getSize();
        const std::int64_t sourceStride = guard->getStride();
        if (sourceSize.x <= 0 || sourceSize.y <= 0 || sourceStride < std::int64_t(sourceSize.x) * 4)
            return false;
        const Box from = Box::from(description->srcRect);
        const Box readable = from.intersect({0, 0, sourceSize.x, sourceSize.y});
        if (from.empty() || readable.empty()) return false;

        const XY<int> targetSize = target_->getSize();
        const Box to = Box::from(description->destRect);
        const Box visible = to.intersect({0, 0, targetSize.x, targetSize.y});
        if (to.empty() || visible.empty()) return true;

        try {
            // The readable part of the source, premultiplied, in float; outside it the source
            // rectangle reads as transparent black.
            OIIO::ImageSpec wrapSpec(readable.width(), readable.height(), 4, OIIO::TypeDesc::UINT8);
            wrapSpec.x = readable.left;
            wrapSpec.y = readable.top;
            wrapSpec.alpha_channel = 3;
            auto* first = const_cast<unsigned char*>(guard->getPixels()) +
                          readable.top * sourceStride + std::int64_t(readable.left) * 4;
            const OIIO::ImageBuf wrapped(wrapSpec, first, 4, sourceStride);
            OIIO::ImageBuf sourceF(floatSpec(readable, from));
            if (!OIIO::ImageBufAlgo::premult(sourceF, wrapped, {}, 1)) return false;

            OIIO::ImageBuf result(floatSpec(visible, to));
            if (!OIIO::ImageBufAlgo::resize(result, sourceF, "lanczos3", 0.0f, {}, 1)) return false;
            OIIO::ImageBufAlgo::unpremult(result, result, {}, 1);

            std::vector<float> values(std::size_t(visible.width()) * visible.height() * 4);
            if (!result.get_pixels(result.roi(), OIIO::TypeDesc::FLOAT, values.data())) return false;
            write(values, visible, description->opacity);
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }

private:
    // Stores the resampled pixels, laid over the old ones by `opacity`. Bytes stay in the
    // target's order, which is the source's: the filter treats the four channels alike.
    void write(const std::vector<float>& values, const Box& box, float opacity)
    {
        const std::size_t stride = target_->getStride();
        const float keep = 1.0f - std::clamp(opacity, 0.0f, 1.0f);
        const float* v = values.data();
        for (int y = box.top; y < box.bottom; ++y) {
            unsigned char* out = target_->pixels() + std::size_t(y) * stride + std::size_t(box.left) * 4;
            for (int x = box.left; x < box.right; ++x, out += 4, v += 4)
                for (int c = 0; c < 4; ++c)
                    out[c] = keep > 0.0f ? toByte(v[c] * (1.0f - keep) + out[c] / 255.0f * keep) : toByte(v[c]);
        }
    }

    Kv::Ptr<KvMemoryImage> target_;
};

}  // namespace

KvMemoryImage::KvMemoryImage(const XY<int>& size) : pixels_(std::size_t(size.x) * size.y * 4, 0)
{
    size_ = size;
}

Kv::Ptr<iHostImage> KvMemoryImage::create(const XY<int>& size)
{
    if (size.x <= 0 || size.y <= 0 || std::uint64_t(size.x) * std::uint64_t(size.y) * 4 > maxBytes)
        return {};
    try {
        return Kv::Ptr<iHostImage>(new KvMemoryImage(size));
    } catch (const std::bad_alloc&) {
        return {};
    }
}

Kv::Ptr<iGraphicPrimitivesRenderer> KvMemoryImage::getPrimitivesRenderer(bool)
{
    return Kv::Ptr<iGraphicPrimitivesRenderer>(new MemoryImageRenderer(Kv::Ptr<KvMemoryImage>(this)));
}

Kv::Ptr<iImage> KvMemoryImage::createCompatibleImage(const XY<int>& size) { return create(size); }

Kv::Ptr<iPixelGuard> KvMemoryImage::lock()
{
    return Kv::Ptr<iPixelGuard>(new MemoryGuard(Kv::Ptr<KvMemoryImage>(this)));
}
