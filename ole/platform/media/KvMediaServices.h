#pragma once
// The host's image file service, from OS()->mediaServices(): reads and writes the picture
// types the library has no codec of its own for, and makes host images.

#include <vector>

#include "ole/Kv/KvPtr.h"
#include "ole/misc/LightweightString.h"
#include "ole/misc/StdAllocator.h"
#include "ole/misc/XY.h"
#include "ole/platform/media/KvHostImage.h"

class iMediaServices {
public:
    struct ImageType {
        std::vector<LightweightString<wchar_t>, StdAllocator<LightweightString<wchar_t>>> extensions;
        LightweightString<wchar_t> description;
    };
    using ImageTypeList = std::vector<ImageType, StdAllocator<ImageType>>;

    // Empty on failure.
    virtual Kv::Ptr<iHostImage> loadImage(const LightweightString<wchar_t>& path) = 0;
    virtual bool saveImage(const Kv::Ptr<iHostImage>& image, const LightweightString<wchar_t>& path) = 0;
    virtual void getLoadableImageTypes(ImageTypeList& list) = 0;
    virtual void getSavableImageTypes(ImageTypeList& list) = 0;
    // A new 32-bit host image of that size.
    virtual Kv::Ptr<iHostImage> createImage(const XY<int>& size) = 0;

protected:
    ~iMediaServices() = default;
};
