#pragma once
// Kv::Image::Surface, the picture of this library: a small handle on a shared SurfaceDataRep
// that holds the descriptors, which in turn holds the bytes behind a counted iMemHolder.
// Copying a Surface costs one count; a view on some of the lines of another picture is a new
// rep over the same bytes, whose holder keeps the source alive.

#include <cstddef>

#include "ole/Kv/KvPtr.h"
#include "ole/image/KvImageDescriptors.h"
#include "ole/image/TopDownRect.h"
#include "ole/platform/os/KvByteBuffer.h"

// Memory that belongs to somebody else: the pointer and one size field, which getSize and
// getUsed both read and which setUsed may only lower.
class KV_EXPORT BufRef : public iMemHolder {
public:
    BufRef(unsigned char* buffer_, unsigned int size_) noexcept : buffer(buffer_), size(size_) {}

    unsigned char* getBuffer() const override { return buffer; }
    unsigned int getSize() const override { return size; }
    unsigned int getUsed() const override { return size; }
    bool setUsed(unsigned int used) override
    {
        if (used > size) return false;
        size = used;
        return true;
    }

    unsigned char* buffer;
    unsigned int size;
};

// Memory that belongs to an object this holder keeps alive: another surface, a lock on a host
// image, a GPU image.
template <class T>
class AttachedObject : public iMemHolder {
public:
    AttachedObject(unsigned char* buffer_, unsigned int size_, const T& object_)
        : buffer(buffer_), size(size_), object(object_)
    {
    }

    unsigned char* getBuffer() const override { return buffer; }
    unsigned int getSize() const override { return size; }
    unsigned int getUsed() const override { return size; }
    bool setUsed(unsigned int) override { return false; }

    unsigned char* buffer;
    unsigned int size;
    T object;
};

namespace Kv::Image {

using MemHolderPtr = Kv::Ptr<iMemHolder, Kv::DtorTraits, Kv::InternalRefCountTraits>;

class Surface;

// The shape and the buffer format of a picture, with its pixels.
class KV_EXPORT Base : public Core::Interface, public BufferFormat::Interface {
public:
    virtual unsigned char* getDataPtr() const = 0;
    virtual TransparencyType getTransparency() const = 0;
    virtual void setTransparency(TransparencyType transparency) = 0;

    // stride * height, in 32 bits.
    unsigned int getImageSize() const;
    // Copies a rectangle of this picture into `dest` at (destX, destY); 0xFFFFFFFF for width
    // or height means the whole of this picture's. Clips to the destination; false (with the
    // assertion print) when the formats differ or the rectangle leaves this picture.
    bool blitTo(Base& dest, unsigned int destX, unsigned int destY, unsigned int width,
                unsigned int height, unsigned int srcX, unsigned int srcY) const;
    // Turns the picture upside down in place and inverts isTopDown.
    void flip();
    // Copies getImageSize() bytes from `data`, or with reverseLines the first line of `data`
    // to the last line and so on upward.
    void fillWithData(unsigned char* data, bool reverseLines);

protected:
    // Bytes from `p` to the end of the memory behind this picture: the limit every pixel loop
    // here keeps to, whatever the descriptors claim.
    std::size_t bytesFrom(const unsigned char* p) const;
};

// Swaps line pairs from the ends inward, lines / 2 times, through one temporary line.
KV_EXPORT void flip(unsigned char* top, unsigned char* bottom, unsigned short bytesPerLine,
                    unsigned int lines);

class KV_EXPORT SurfaceDataRep : public Core::Data,
                                 public BufferFormat::Data,
                                 public Video::Data,
                                 public VideoSample::Data {
public:
    SurfaceDataRep();
    SurfaceDataRep(unsigned int width, unsigned int height, Format format, bool allocate,
                   unsigned short bitsPerComponent, unsigned short bitsPerPixel,
                   unsigned short stride);
    ~SurfaceDataRep() override;
    SurfaceDataRep(const SurfaceDataRep&) = delete;
    SurfaceDataRep& operator=(const SurfaceDataRep&) = delete;

    void init(unsigned int width, unsigned int height, Format format, bool allocate,
              unsigned short bitsPerComponent, unsigned short bitsPerPixel, unsigned short stride);
    void incRef();
    void decRef();
    void updateImageHandle();

    int imageHandle;
    int refCount_;
    unsigned int startLine;
    TransparencyType transparency;
    MemHolderPtr memory;

    static int handleIndex_;
};

class KV_EXPORT Surface : public Base, public Video::Interface, public VideoSample::Interface {
public:
    Surface();
    Surface(unsigned int width, unsigned int height, Format format, bool allocate,
            unsigned short bitsPerComponent, unsigned short bitsPerPixel, unsigned short stride);
    Surface(const Surface& other);
    ~Surface() override;

    // Core.
    unsigned int getWidth() const override;
    unsigned int getHeight() const override;
    void setWidth(unsigned int width) override;
    void setHeight(unsigned int height) override;
    Format getDataFormat() const override;
    void setDataFormat(Format format) override;
    unsigned short getBitsPerComponent() const override;
    void setBitsPerComponent(unsigned short bits) override;
    unsigned short getBitsPerPixel() const override;
    void setBitsPerPixel(unsigned short bits) override;
    bool getCoreDataSet() const override;
    void setCoreDataSet(bool set) override;

    unsigned char* getDataPtr() const override;
    TransparencyType getTransparency() const override;
    void setTransparency(TransparencyType transparency) override;
    virtual Surface& operator=(const Surface& other);
    virtual unsigned char* getRawLinePtr(unsigned int line) const;
    virtual void getRGBPixel(unsigned int x, unsigned int y, unsigned char& r, unsigned char& g,
                             unsigned char& b) const;
    virtual void getYUVPixel(unsigned int x, unsigned int y, char& yy, char& u, char& v) const;
    virtual void setRGBPixel(unsigned int x, unsigned int y, unsigned char r, unsigned char g,
                             unsigned char b);
    virtual void setYUVPixel(unsigned int x, unsigned int y, char yy, char u, char v);

    // BufferFormat.
    bool getIsTopDown() const override;
    void setIsTopDown(bool topDown) override;
    unsigned int getStride() const override;
    void setStride(unsigned int stride) override;
    unsigned short getStrideMultiplier() const override;
    void setStrideMultiplier(unsigned short multiplier) override;
    bool getBufferFormatDataSet() const override;
    void setBufferFormatDataSet(bool set) override;

    // Video.
    ScanMode getScanMode() const override;
    void setScanMode(ScanMode mode) override;
    AspectRatio getAspectRatio() const override;
    void setAspectRatio(AspectRatio ratio) override;
    unsigned int getVideoFormatUID() const override;
    void setVideoFormatUID(unsigned int uid) override;
    bool getVideoDataSet() const override;
    void setVideoDataSet(bool set) override;

    // VideoSample.
    Polarity getPolarity() const override;
    void setPolarity(Polarity polarity) override;
    Colorimetry getColorimetry() const override;
    void setColorimetry(Colorimetry colorimetry) override;
    bool getIsVideoGamutScaled() const override;
    void setIsVideoGamutScaled(bool scaled) override;
    bool getVideoSampleDataSet() const override;
    void setVideoSampleDataSet(bool set) override;

    // Re-describes the present rep, which may be shared.
    void init(unsigned int width, unsigned int height, Format format, bool allocate,
              unsigned short bitsPerComponent, unsigned short bitsPerPixel, unsigned short stride);
    unsigned char* getRawDataPtr() const;
    unsigned int getStartLine() const;
    void setStartLine(unsigned int line);
    bool valid() const;
    // Gives up the rep and takes a new empty one; other handles keep the old rep.
    void free();
    void createBlack(bool unused);
    bool CopyBlit(const Surface& src);
    void setDataPtr(const MemHolderPtr& holder);
    void setDataPtr(unsigned char* data, int size);
    void updateImageHandle();

    void getRGBAPixel(unsigned int x, unsigned int y, unsigned char& r, unsigned char& g,
                      unsigned char& b, unsigned char& a) const;
    void setRGBAPixel(unsigned int x, unsigned int y, unsigned char r, unsigned char g,
                      unsigned char b, unsigned char a);
    bool validPixelPtr(unsigned char* p) const;

    // Auto-crop searches on 32-bit ARGB. In spite of their names, the two black tests answer
    // true when the line or column holds something: some colour byte above the tolerance.
    bool horizLineIsBlack(unsigned int y);
    // Steps by width * 4 bytes, not by the stride.
    bool vertLineIsBlack(unsigned int x);
    // Bottom-up: top and bottom count from the bottom line; right is the last column itself.
    void findNonBlackArea(int& left, int& bottom, int& right, int& top);
    // A pixel is transparent while its word is below 0x03000000 (alpha at most 2).
    bool horizLineIsTransparent(unsigned int y) const;
    bool vertLineIsTransparent(unsigned int x, unsigned int startY, unsigned int endY) const;
    // Top-down, right and bottom exclusive; all zero for a picture with nothing in it.
    TopDownRect findNonTransparentArea() const;

    // The shared rep and its holder, for the views and wrappers built on a surface.
    SurfaceDataRep* rep() const noexcept { return rep_; }
    const MemHolderPtr& getMemHolder() const noexcept { return rep_->memory; }
    // Bytes from `p` to the end of the holder; 0 when `p` lies outside it.
    std::size_t holderBytesFrom(const unsigned char* p) const noexcept;

private:
    unsigned char* pixelAddress(unsigned int x, unsigned int y) const;

    SurfaceDataRep* rep_;
};

// A grey preview of a YUV picture with luma first: each ARGB pixel takes byte 2x of its line.
KV_EXPORT Surface yuvToARGB(const Surface& source);
// No colour maths here: each of these two prints the assertion and does nothing else.
KV_EXPORT void RGBtoYUV(unsigned char r, unsigned char g, unsigned char b, unsigned char& y, char& u, char& v);
KV_EXPORT void YUVtoRGB(unsigned char y, char u, char v, unsigned char& r, unsigned char& g, unsigned char& b);

// The colour tolerance of the black searches, "auto_crop_tolerance", read once at load.
KV_EXPORT int autoCropTolerance();

}  // namespace Kv::Image
