#pragma once
// The bridge between the library's pictures and the host's: KvImageWrapper shows a Surface
// to the host as an iHostImage, makeWrapper shows a host image as a Surface, and
// makeSubImageWrapper a rectangle of a Surface. None of them copies pixels.

#include <utility>

#include "ole/image/KvSurface.h"
#include "ole/image/TopDownRect.h"
#include "ole/platform/media/KvHostImage.h"

class KV_EXPORT KvImageWrapper : public iHostImage {
public:
    explicit KvImageWrapper(const Kv::Image::Surface& surface);

    // The host counts a line in 32-bit-like units: see the formula in the source.
    XY<int> getSize() const override;
    unsigned int getBitsPerPixel() const override;
    unsigned int getStride() const override;
    // A guard that only remembers the pointer: keep the wrapper while using it.
    Kv::Ptr<iPixelGuard> lock() override;
    Kv::Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(bool forWriting) override;
    Kv::Ptr<iImage> createCompatibleImage(const XY<int>& size) override;

    const Kv::Image::Surface& surface() const noexcept { return surface_; }

private:
    Kv::Image::Surface surface_;
};

// An empty Surface for an empty pointer, a host image 0 wide, or an image of the wrong kind.
KV_EXPORT Kv::Image::Surface makeWrapper(Kv::Ptr<iHostImage> image);
// valid() but with a null getDataPtr(): it only carries the GPU image along.
KV_EXPORT Kv::Image::Surface makeWrapper(Kv::Ptr<iGPUImage> image);
KV_EXPORT Kv::Image::Surface makeWrapper(Kv::Ptr<iImage> image);
// A view of a rectangle wholly inside the surface; an empty Surface otherwise.
KV_EXPORT Kv::Image::Surface makeSubImageWrapper(const std::pair<Kv::Image::Surface, TopDownRect>& source);

// Hands the surface to the host's saver as "c:\temp\dbg\frame<n>.bmp", n counting up.
KV_EXPORT void DbgSaveSurface(Kv::Image::Surface& surface);
