#pragma once
// The host's image family: pictures that belong to the host's graphics layer, in main memory
// (iHostImage) or on the GPU (iGPUImage), and the guard that keeps a host picture's pixels in
// place while somebody reads them.

#include "ole/Kv/KvPtr.h"
#include "ole/Kv/KvRectangle.h"
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

// Something a renderer can draw.
class iGraphicPrimitive : public virtual iObject {
public:
    // Where it lands in the target: left, top, right, bottom (x1, y1, x2, y2), y downward,
    // right and bottom exclusive.
    virtual Kv::Rectangle<int> getBounds() const = 0;
};

// A picture to draw: the part srcRect of `image` scaled into the part destRect of the target.
// Rectangles are left, top, right, bottom (x1, y1, x2, y2), right and bottom exclusive.
class ImageDescription : public iGraphicPrimitive {
public:
    ImageDescription(const Kv::Ptr<iImageBase>& image_, const Kv::Rectangle<int>& destRect_,
                     const Kv::Rectangle<int>& srcRect_, int flags_ = 0, float opacity_ = 1.0f)
        : image(image_), destRect(destRect_), srcRect(srcRect_), flags(flags_), opacity(opacity_)
    {
    }

    Kv::Rectangle<int> getBounds() const override { return destRect; }

    Kv::Ptr<iImageBase> image;
    Kv::Rectangle<int> destRect;
    Kv::Rectangle<int> srcRect;
    int flags;      // reserved, 0
    float opacity;  // 1: the drawing replaces the target's pixels; below 1 it is laid over them
};

// Draws on a host image.
class iGraphicPrimitivesRenderer : public virtual iObject {
public:
    enum DrawMode { Copy = 1 };
    // True when the primitive was drawn (a primitive wholly outside the target counts as
    // drawn); false for a kind of primitive or a mode this renderer does not know, or a
    // source it cannot read.
    virtual bool draw(const Kv::Ptr<iGraphicPrimitive>& primitive, int mode) = 0;
};
