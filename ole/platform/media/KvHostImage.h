#pragma once
// The host's image family: pictures that belong to the host's graphics layer, in main memory
// (iHostImage) or on the GPU (iGPUImage), and the guard that keeps a host picture's pixels in
// place while somebody reads them.

#include "ole/Kv/KvPtr.h"
#include "ole/Kv/KvRefCount.h"
#include "ole/misc/XY.h"

class iGraphicPrimitivesRenderer;
class iImage;

// Proof that the pixels of a host image stay put: while a guard lives, its pointer is good.
class iPixelGuard : public virtual iObject {
public:
    virtual const unsigned char* getPixels() const = 0;
    virtual unsigned char* getPixels() = 0;
    virtual unsigned int getStride() const = 0;
    virtual XY<int> getSize() const = 0;
};

class iImageBase : public virtual iObject {
public:
    virtual XY<int> getSize() const = 0;
};

class iImage : public iImageBase {
public:
    enum Location { MainMemory = 0, GPU = 1 };

    virtual int getLocation() const = 0;
    virtual unsigned int getBitsPerPixel() const = 0;
    virtual Kv::Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(bool forWriting) = 0;
    virtual Kv::Ptr<iImage> createCompatibleImage(const XY<int>& size) = 0;
};

// A host picture in main memory.
class iHostImage : public iImage {
public:
    virtual Kv::Ptr<iPixelGuard> lock() = 0;
    virtual unsigned int getStride() const { return (unsigned(getSize().x) * getBitsPerPixel()) >> 3; }
    virtual bool isAlphaPreMultiplied() const { return false; }
    int getLocation() const override { return MainMemory; }

protected:
    XY<int> size_;        // the picture's size, as the host keeps it
    int hostState_ = 1;   // the host's own; not read here
};

// A plain base of everything the GPU layer owns.
class iGPUResource {
public:
    virtual ~iGPUResource() = default;
};

// A host picture on the GPU: the library only takes its size and keeps it alive.
class iGPUImage : public iImage, public iGPUResource {
public:
    int getLocation() const override { return GPU; }
};

// Draws on a host image; what it draws is told where it is used.
class iGraphicPrimitivesRenderer : public virtual iObject {
};
