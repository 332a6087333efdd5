#pragma once
// The reference platform's host image: a 32-bit picture in main memory, bytes blue, green, red,
// alpha (the library's 8-bit ARGB), lines packed and top line first. Its renderer draws
// ImageDescriptions, resampling with a Lanczos filter.

#include <vector>

#include "ole/platform/media/KvHostImage.h"
#include "ole/platform/os/KvPlatformExport.h"

class KV_EXPORT KvMemoryImage : public iHostImage {
public:
    // Null for a size that is not positive or too large to hold. The pixels start transparent
    // black.
    static Kv::Ptr<iHostImage> create(const XY<int>& size);

    XY<int> getSize() const override { return size_; }
    unsigned int getBitsPerPixel() const override { return 32; }
    Kv::Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(bool forWriting) override;
    Kv::Ptr<iImage> createCompatibleImage(const XY<int>& size) override;
    // The guard keeps the image, and so its pixels, alive.
    Kv::Ptr<iPixelGuard> lock() override;

    unsigned char* pixels() noexcept { return pixels_.data(); }
    std::size_t byteCount() const noexcept { return pixels_.size(); }

private:
    explicit KvMemoryImage(const XY<int>& size);

    std::vector<unsigned char> pixels_;
};
