#pragma once
// The reference media service: still images read and written through OpenImageIO, and
// in-memory host images (KvMemoryImage). It is installed with OS()->setMediaServices when the
// platform library loads, unless a service is already in place.

#include "ole/platform/media/KvMediaServices.h"
#include "ole/platform/os/KvPlatformExport.h"

class KV_EXPORT KvOIIOMediaServices final : public iMediaServices {
public:
    constexpr KvOIIOMediaServices() = default;

    // A host image of 8-bit channels: grey, grey with alpha, RGB and RGBA files are taken, and
    // files with more channels give their first four. Empty on failure.
    Kv::Ptr<iHostImage> loadImage(const LightweightString<wchar_t>& path) override;
    // Writes 32-bit (bytes blue, green, red, alpha), 24-bit (blue, green, red) and 64-bit
    // (16-bit words red, green, blue, alpha) host images; the type comes from the extension.
    // Alpha is dropped for a file type that has none.
    bool saveImage(const Kv::Ptr<iHostImage>& image, const LightweightString<wchar_t>& path) override;
    // One entry a file type: its extensions, and the type's name as the description.
    void getLoadableImageTypes(ImageTypeList& list) override;
    void getSavableImageTypes(ImageTypeList& list) override;
    // A KvMemoryImage; null for a size that is not positive or too large.
    Kv::Ptr<iHostImage> createImage(const XY<int>& size) override;
};

namespace Kv::Platform {
// The service that the platform installs at load, for a test or host that wants it back.
KV_EXPORT iMediaServices* referenceMediaServices() noexcept;
}  // namespace Kv::Platform
