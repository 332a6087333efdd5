#include "ole/image/KvImageWrapper.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "ole/platform/media/KvMediaServices.h"
#include "ole/platform/os/OS.h"

using namespace Kv::Image;

namespace {

// Remembers what lock() found; holds neither a lock nor the surface.
class Guard final : public iPixelGuard {
public:
    Guard(unsigned char* pixels, const XY<int>& size, unsigned int stride)
        : pixels_(pixels), size_(size), stride_(stride)
    {
    }
    const unsigned char* getPixels() const override { return pixels_; }
    unsigned char* getPixels() override { return pixels_; }
    unsigned int getStride() const override { return stride_; }
    XY<int> getSize() const override { return size_; }

private:
    unsigned char* pixels_;
    XY<int> size_;
    unsigned int stride_;
};

}  // namespace

KvImageWrapper::KvImageWrapper(const Surface& surface) : surface_(surface)
{
    size_ = XY<int>(int(surface.getWidth()), int(surface.getHeight()));
}

XY<int> KvImageWrapper::getSize() const
{
    const unsigned int stride = surface_.getStride();
    const unsigned int bpp = surface_.getBitsPerPixel();
    unsigned int x;
    switch (int(surface_.getDataFormat())) {
    case 31:
    case 35:
        x = surface_.getWidth();
        break;
    case NV12:
        x = bpp ? stride * 6 / bpp : 0;
        break;
    default:
        // For 8-bit ARGB the width, unless the stride has padding, which widens it.
        x = bpp ? stride * surface_.getBitsPerComponent() / bpp : 0;
        break;
    }
    return XY<int>(int(x), int(surface_.getHeight()));
}

unsigned int KvImageWrapper::getBitsPerPixel() const { return surface_.getBitsPerPixel(); }

unsigned int KvImageWrapper::getStride() const { return surface_.getStride(); }

Kv::Ptr<iPixelGuard> KvImageWrapper::lock()
{
    return Kv::Ptr<iPixelGuard>(new Guard(surface_.getDataPtr(), getSize(), surface_.getStride()));
}

Kv::Ptr<iGraphicPrimitivesRenderer> KvImageWrapper::getPrimitivesRenderer(bool) { return {}; }

Kv::Ptr<iImage> KvImageWrapper::createCompatibleImage(const XY<int>&) { return {}; }

Surface makeWrapper(Kv::Ptr<iHostImage> image)
{
    Surface surface;
    if (!image) return surface;
    const XY<int> size = image->getSize();
    if (size.x == 0) return surface;
    Kv::Ptr<iPixelGuard> guard = image->lock();
    if (!guard) return surface;
    const unsigned short stride = static_cast<unsigned short>(guard->getStride());
    // A host image is taken to be 32 bits, 8 a component.
    surface.init(unsigned(size.x), unsigned(size.y), ARGB, false, 0, 0, stride);
    const unsigned int bytes = guard->getStride() * unsigned(size.y);
    surface.setDataPtr(MemHolderPtr(
        new AttachedObject<Kv::Ptr<iPixelGuard>>(guard->getPixels(), bytes, guard)));
    return surface;
}

Surface makeWrapper(Kv::Ptr<iGPUImage> image)
{
    Surface surface;
    if (!image) return surface;
    const XY<int> size = image->getSize();
    const unsigned short stride = static_cast<unsigned short>(unsigned(size.x) * 4);
    if (stride == 0) return surface;
    surface.init(unsigned(size.x), unsigned(size.y), ARGB, false, 0, 0, stride);
    surface.setDataPtr(MemHolderPtr(
        new AttachedObject<Kv::Ptr<iGPUImage>>(nullptr, unsigned(stride) * unsigned(size.y), image)));
    return surface;
}

Surface makeWrapper(Kv::Ptr<iImage> image)
{
    if (!image) return Surface();
    if (image->getLocation() == iImage::GPU)
        return makeWrapper(Kv::Ptr<iGPUImage>(dynamic_cast<iGPUImage*>(image.get())));
    return makeWrapper(Kv::Ptr<iHostImage>(dynamic_cast<iHostImage*>(image.get())));
}

Surface makeSubImageWrapper(const std::pair<Surface, TopDownRect>& source)
{
    const Surface& surface = source.first;
    const TopDownRect& rect = source.second;
    Surface view;
    const TopDownRect whole(0, 0, int(surface.getWidth()), int(surface.getHeight()));
    if (!(TopDownRect::getIntersection(rect, whole) == rect)) return view;

    const unsigned short stride = static_cast<unsigned short>(surface.getStride());
    const unsigned short bpp = surface.getBitsPerPixel();
    const unsigned short bpc = surface.getBitsPerComponent();
    const unsigned int width = unsigned(std::abs(rect.right - rect.left));
    const unsigned int height = unsigned(std::abs(rect.bottom - rect.top));
    view = Surface(width, height, surface.getDataFormat(), false, bpc, bpp, stride);

    // Signed: the offset of the first pixel in its line.
    const std::int64_t offset = std::int64_t(stride) * rect.top + (int(bpp) * rect.left) / 8;
    unsigned char* first = surface.getDataPtr() ? surface.getDataPtr() + offset : nullptr;
    // The view's lines run over the source's memory, and never beyond it.
    std::size_t bytes = std::size_t(height) * stride;
    bytes = surface.valid() ? std::min(bytes, surface.holderBytesFrom(first)) : 0;
    view.setDataPtr(MemHolderPtr(new AttachedObject<Surface>(first, unsigned(bytes), surface)));
    return view;
}

void DbgSaveSurface(Surface& surface)
{
    static int frame = 0;
    ++frame;
    char path[64];
    std::snprintf(path, sizeof path, "c:\\temp\\dbg\\frame%d.bmp", frame);
    iMediaServices* media = OS()->mediaServices();
    if (!media) return;
    LightweightString<wchar_t> name;
    name.resizeFor(unsigned(std::char_traits<char>::length(path)));
    for (unsigned int i = 0; path[i]; ++i) name.buffer()[i] = wchar_t(path[i]);
    media->saveImage(Kv::Ptr<iHostImage>(new KvImageWrapper(surface)), name);
}
