#include "ole/image/KvSurface.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <limits>

#include "ole/platform/os/KvAssert.h"

namespace Kv::Image {

namespace {

// Buffers made by init and not yet given back; a diagnostic that nothing reads.
std::atomic<int> buffersInUse{0};

// `base + offset` as an address, also for a null base (a surface without a holder reports the
// bare product, which is never dereferenced).
unsigned char* offsetAddress(unsigned char* base, unsigned int offset) noexcept
{
    return reinterpret_cast<unsigned char*>(reinterpret_cast<std::uintptr_t>(base) + offset);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Base

std::size_t Base::bytesFrom(const unsigned char* p) const
{
    if (const auto* surface = dynamic_cast<const Surface*>(this)) return surface->holderBytesFrom(p);
    return std::numeric_limits<std::size_t>::max();  // a host's own picture: its word is all there is
}

unsigned int Base::getImageSize() const { return getStride() * getHeight(); }

bool Base::blitTo(Base& dest, unsigned int destX, unsigned int destY, unsigned int width,
                  unsigned int height, unsigned int srcX, unsigned int srcY) const
{
    if (width == 0xFFFFFFFFu) width = getWidth();
    if (height == 0xFFFFFFFFu) height = getHeight();
    const bool ok = getDataFormat() == dest.getDataFormat() && dest.getDataPtr() != nullptr &&
                    destX < dest.getWidth() && destY < dest.getHeight() &&
                    std::uint64_t(srcX) + width <= getWidth() &&
                    std::uint64_t(srcY) + height <= getHeight();
    if (!ok) {
        KV_ASSERT(false);
        return false;
    }
    width = std::min(width, dest.getWidth() - destX);
    height = std::min(height, dest.getHeight() - destY);

    const unsigned int bpp = getBitsPerPixel();
    const std::size_t rowBytes = (std::uint64_t(bpp) * width) >> 3;
    const unsigned int srcStride = getStride();
    const unsigned int destStride = dest.getStride();
    const unsigned char* from = offsetAddress(getDataPtr(), srcY * srcStride + ((bpp * srcX) >> 3));
    unsigned char* to = offsetAddress(dest.getDataPtr(), destY * destStride + ((bpp * destX) >> 3));
    // Reads the stride of both sides; stops at the end of either side's memory.
    for (unsigned int row = 0; row < height; ++row) {
        if (bytesFrom(from) < rowBytes || dest.bytesFrom(to) < rowBytes) break;
        std::memcpy(to, from, rowBytes);
        from += srcStride;
        to += destStride;
    }
    return true;
}

void flip(unsigned char* top, unsigned char* bottom, unsigned short bytesPerLine, unsigned int lines)
{
    if (lines < 2 || bytesPerLine == 0) return;
    unsigned char* temp = new unsigned char[bytesPerLine];
    for (unsigned int i = 0; i < lines / 2; ++i) {
        std::memcpy(temp, top, bytesPerLine);
        std::memcpy(top, bottom, bytesPerLine);
        std::memcpy(bottom, temp, bytesPerLine);
        top += bytesPerLine;
        bottom -= bytesPerLine;
    }
    delete[] temp;
}

void Base::flip()
{
    unsigned char* data = getDataPtr();
    const unsigned int stride = getStride();
    unsigned int lines = getHeight();
    // Only the lines that lie wholly in the memory take part.
    if (stride != 0) lines = unsigned(std::min<std::size_t>(lines, bytesFrom(data) / stride));
    if (data && lines > 0)
        Kv::Image::flip(data, data + std::size_t(lines - 1) * stride, static_cast<unsigned short>(stride), lines);
    setIsTopDown(!getIsTopDown());
}

void Base::fillWithData(unsigned char* data, bool reverseLines)
{
    unsigned char* out = getDataPtr();
    if (!out || !data) return;
    if (!reverseLines) {
        std::memcpy(out, data, std::min<std::size_t>(getImageSize(), bytesFrom(out)));
        return;
    }
    const unsigned int stride = static_cast<unsigned short>(getStride());
    const unsigned int height = getHeight();
    if (stride == 0 || height == 0) return;
    // Line n of the picture takes line height - 1 - n of the data. Only the lines that lie
    // wholly in the memory are written.
    const std::size_t fit = std::min<std::size_t>(height, bytesFrom(out) / stride);
    for (std::size_t line = 0; line < fit; ++line) {
        const std::size_t i = height - 1 - line;
        std::memcpy(out + line * stride, data + i * stride, stride);
    }
}

// ---------------------------------------------------------------------------------------------
// SurfaceDataRep

int SurfaceDataRep::handleIndex_ = 0;

SurfaceDataRep::SurfaceDataRep()
    : Core::Data(0, 0, InvalidFormat, 8, 4, false), imageHandle(0), refCount_(1), startLine(0),
      transparency(Unknown)
{
    updateImageHandle();
}

SurfaceDataRep::SurfaceDataRep(unsigned int width, unsigned int height, Format format, bool allocate,
                               unsigned short bitsPerComponent, unsigned short bitsPerPixel,
                               unsigned short stride)
    : Core::Data(0, 0, InvalidFormat, 8, 32, false), imageHandle(0), refCount_(1), startLine(0),
      transparency(Unknown)
{
    updateImageHandle();
    init(width, height, format, allocate, bitsPerComponent, bitsPerPixel, stride);
}

SurfaceDataRep::~SurfaceDataRep() = default;

void SurfaceDataRep::init(unsigned int width_, unsigned int height_, Format format, bool allocate,
                          unsigned short bitsPerComponent_, unsigned short bitsPerPixel_,
                          unsigned short stride_)
{
    width = width_;
    height = height_;
    dataFormat = format;
    startLine = 0;
    bitsPerComponent = bitsPerComponent_ ? bitsPerComponent_ : getBitsPerComponentFromFormat(format);
    if (bitsPerPixel_ == 0) {
        bitsPerPixel = Kv::Image::getBitsPerPixel(format, bitsPerComponent);
    } else if (width != 0) {
        // The argument is only a switch: the stride may raise the table's value.
        const unsigned int table = Kv::Image::getBitsPerPixel(format, bitsPerComponent);
        const unsigned int fromStride = (stride_ / width) >> 3;
        bitsPerPixel = static_cast<unsigned short>(std::max(table, fromStride));
    }
    stride = stride_ ? stride_ : (width * bitsPerPixel) >> 3;
    if (allocate) {
        const unsigned int needed = height * stride;
        const unsigned int present = memory ? memory->getSize() : 0;
        if (needed > present) {
            auto* buffer = new ByteBufferImpl(needed);
            MemHolderPtr holder(buffer);
            buffer->alloc(needed);
            memory = holder;
            buffersInUse.fetch_add(1, std::memory_order_relaxed);
        }
    }
    transparency = hasAlphaChannel(format) ? Unknown : Opaque;
    updateImageHandle();
    setCoreDataSet(true);
    setBufferFormatDataSet(true);
}

void SurfaceDataRep::incRef()
{
    if (__atomic_load_n(&refCount_, __ATOMIC_RELAXED) == 0) KV_ASSERT(refCount_ != 0);
    Kv::Platform::incrementCount(&refCount_);
}

void SurfaceDataRep::decRef()
{
    if (__atomic_load_n(&refCount_, __ATOMIC_RELAXED) < 1) KV_ASSERT(false);
    if (Kv::Platform::decrementCount(&refCount_) != 0) return;
    buffersInUse.fetch_sub(1, std::memory_order_relaxed);
    delete this;
}

void SurfaceDataRep::updateImageHandle()
{
    imageHandle = OS()->refCounter()->increment(&handleIndex_);
}

// ---------------------------------------------------------------------------------------------
// Surface: life and sharing

Surface::Surface() : rep_(new SurfaceDataRep()) {}

Surface::Surface(unsigned int width, unsigned int height, Format format, bool allocate,
                 unsigned short bitsPerComponent, unsigned short bitsPerPixel, unsigned short stride)
    : rep_(new SurfaceDataRep(width, height, format, allocate, bitsPerComponent, bitsPerPixel, stride))
{
}

// A new handle on the same rep; the handle's own count (of its iObject base) starts afresh.
Surface::Surface(const Surface& other)
    : Kv::InternalRefCount(), iObject(), Base(), Video::Interface(), VideoSample::Interface(),
      rep_(other.rep_)
{
    rep_->incRef();
}

Surface::~Surface() { rep_->decRef(); }

Surface& Surface::operator=(const Surface& other)
{
    // Counting the source up first makes assignment to itself safe.
    other.rep_->incRef();
    rep_->decRef();
    rep_ = other.rep_;
    return *this;
}

void Surface::init(unsigned int width, unsigned int height, Format format, bool allocate,
                   unsigned short bitsPerComponent, unsigned short bitsPerPixel, unsigned short stride)
{
    rep_->init(width, height, format, allocate, bitsPerComponent, bitsPerPixel, stride);
}

void Surface::free()
{
    SurfaceDataRep* fresh = new SurfaceDataRep();
    rep_->decRef();
    rep_ = fresh;
}

bool Surface::valid() const { return static_cast<bool>(rep_->memory); }

void Surface::setDataPtr(const MemHolderPtr& holder) { rep_->memory = holder; }

void Surface::setDataPtr(unsigned char* data, int size)
{
    rep_->memory = MemHolderPtr(new BufRef(data, static_cast<unsigned int>(size)));
    updateImageHandle();
}

void Surface::updateImageHandle() { rep_->updateImageHandle(); }

// ---------------------------------------------------------------------------------------------
// Surface: memory

unsigned char* Surface::getRawDataPtr() const
{
    return rep_->memory ? rep_->memory->getBuffer() : nullptr;
}

unsigned char* Surface::getDataPtr() const
{
    return offsetAddress(getRawDataPtr(), rep_->startLine * rep_->stride);
}

unsigned char* Surface::getRawLinePtr(unsigned int line) const
{
    return offsetAddress(getRawDataPtr(), rep_->stride * line);
}

unsigned int Surface::getStartLine() const { return rep_->startLine; }

void Surface::setStartLine(unsigned int line) { rep_->startLine = line; }

std::size_t Surface::holderBytesFrom(const unsigned char* p) const noexcept
{
    if (!rep_->memory) return 0;
    const auto begin = reinterpret_cast<std::uintptr_t>(rep_->memory->getBuffer());
    const auto end = begin + rep_->memory->getSize();
    const auto at = reinterpret_cast<std::uintptr_t>(p);
    if (!begin || at < begin || at >= end) return 0;
    return end - at;
}

bool Surface::validPixelPtr(unsigned char* p) const
{
    // Counted from the picture's first line, not from the buffer's start: a surface with a
    // start line accepts more than its own memory here, so the accessors also keep to the
    // holder itself.
    const auto data = reinterpret_cast<std::uintptr_t>(getDataPtr());
    const auto size = rep_->memory ? rep_->memory->getSize() : 0u;
    const auto at = reinterpret_cast<std::uintptr_t>(p);
    return at >= data && at < data + size;
}

TransparencyType Surface::getTransparency() const
{
    if (rep_->transparency != Unknown) return rep_->transparency;
    const unsigned int count = rep_->width * rep_->height;
    if (count == 0) return Unknown;
    // Packed 32-bit pixels from the first line, without regard to the stride.
    const unsigned char* p = getDataPtr();
    const std::size_t pixels = std::min<std::size_t>(count, holderBytesFrom(p) / 4);
    if (pixels == 0) return Unknown;  // no pixels in main memory (a GPU picture): nothing to tell
    std::size_t i = 0;
    // Sixty-four pixels at a time: the AND of their words keeps the AND of their alpha bytes, and
    // only a block whose alpha is not all 0xFF is looked at pixel by pixel.
    for (; i + 64 <= pixels; i += 64) {
        std::uint32_t all = 0xFFFFFFFFu;
        for (int k = 0; k < 64; ++k) {
            std::uint32_t word;
            std::memcpy(&word, p + (i + k) * 4, 4);
            all &= word;
        }
        if ((all & 0xFF000000u) != 0xFF000000u) break;
    }
    for (; i < pixels; ++i)
        if (p[i * 4 + 3] != 0xFF) return rep_->transparency = HasTransparency;
    return rep_->transparency = Opaque;
}

void Surface::setTransparency(TransparencyType transparency)
{
    KV_ASSERT(transparency != HasTransparency || hasAlphaChannel( getDataFormat() ));
    rep_->transparency = transparency;
}

void Surface::createBlack(bool)
{
    if (getDataPtr() == nullptr) init(2, 2, ARGB, true, 0, 0, 0);
    if (!rep_->memory) return;
    unsigned char* data = getDataPtr();
    FastMemSet(data, 0xFF000000u, std::min<std::size_t>(rep_->memory->getSize(), holderBytesFrom(data)));
}

bool Surface::CopyBlit(const Surface& src)
{
    // Hold src's rep: it may be this handle's own, which is counted down first so that its
    // memory can serve the new picture.
    const Surface keep(src);
    rep_->decRef();
    rep_ = nullptr;
    try {
        rep_ = new SurfaceDataRep(keep.getWidth(), keep.getHeight(), keep.getDataFormat(), true,
                                  keep.getBitsPerComponent(), keep.getBitsPerPixel(),
                                  static_cast<unsigned short>(keep.getStride()));
    } catch (...) {
        rep_ = new SurfaceDataRep();
        throw;
    }
    static_cast<Video::Interface&>(*this) = static_cast<const Video::Interface&>(src);
    static_cast<VideoSample::Interface&>(*this) = static_cast<const VideoSample::Interface&>(src);
    if (rep_->memory) {
        const unsigned int size = rep_->memory->getSize();
        const unsigned char* from = src.getDataPtr();
        const std::size_t n = std::min<std::size_t>(size, src.holderBytesFrom(from));
        if (n) std::memcpy(rep_->memory->getBuffer(), from, n);
        rep_->memory->setUsed(size);
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Surface: single pixels, for the host

unsigned char* Surface::pixelAddress(unsigned int x, unsigned int y) const
{
    return offsetAddress(getDataPtr(), y * rep_->stride + ((rep_->bitsPerPixel * x) >> 3));
}

void Surface::getRGBPixel(unsigned int x, unsigned int y, unsigned char& r, unsigned char& g,
                          unsigned char& b) const
{
    if (rep_->dataFormat != ARGB && rep_->dataFormat != RGB) {
        KV_ASSERT(false);
        return;
    }
    const unsigned char* p = pixelAddress(x, y);
    if (!validPixelPtr(const_cast<unsigned char*>(p)) || holderBytesFrom(p) < 3) return;
    b = p[0];
    g = p[1];
    r = p[2];
}

void Surface::setRGBPixel(unsigned int x, unsigned int y, unsigned char r, unsigned char g,
                          unsigned char b)
{
    if (rep_->dataFormat != ARGB && rep_->dataFormat != RGB) {
        KV_ASSERT(false);
        return;
    }
    unsigned char* p = pixelAddress(x, y);
    if (!validPixelPtr(p) || holderBytesFrom(p) < 3) return;
    // Red first in memory: the reverse of what getRGBPixel reads, as hosts expect.
    p[0] = r;
    p[1] = g;
    p[2] = b;
}

void Surface::getRGBAPixel(unsigned int x, unsigned int y, unsigned char& r, unsigned char& g,
                           unsigned char& b, unsigned char& a) const
{
    if (rep_->dataFormat != ARGB && rep_->dataFormat != RGB) {
        KV_ASSERT(false);
        return;
    }
    const unsigned char* p = pixelAddress(x, y);
    const std::size_t room = holderBytesFrom(p);
    if (!validPixelPtr(const_cast<unsigned char*>(p)) || room < 3) return;
    b = p[0];
    g = p[1];
    r = p[2];
    // On a 24-bit picture the fourth byte is the next pixel's first, and after the last pixel
    // of the buffer there is none to read.
    if (room >= 4) a = p[3];
}

void Surface::setRGBAPixel(unsigned int x, unsigned int y, unsigned char r, unsigned char g,
                           unsigned char b, unsigned char a)
{
    if (rep_->dataFormat != ARGB) {
        KV_ASSERT(false);
        return;
    }
    unsigned char* p = pixelAddress(x, y);
    const auto limit = reinterpret_cast<std::uintptr_t>(getDataPtr()) +
                       (rep_->memory ? rep_->memory->getSize() : 0u);
    if (reinterpret_cast<std::uintptr_t>(p) >= limit || holderBytesFrom(p) < 4) return;
    p[0] = b;
    p[1] = g;
    p[2] = r;
    p[3] = a;
}

void Surface::getYUVPixel(unsigned int, unsigned int, char&, char&, char&) const {}

void Surface::setYUVPixel(unsigned int, unsigned int, char, char, char) { KV_ASSERT(false); }

// ---------------------------------------------------------------------------------------------
// Surface: descriptors, all on the shared rep

unsigned int Surface::getWidth() const { return rep_->width; }
unsigned int Surface::getHeight() const { return rep_->height; }
void Surface::setWidth(unsigned int v) { rep_->width = v; }
void Surface::setHeight(unsigned int v) { rep_->height = v; }
Format Surface::getDataFormat() const { return rep_->dataFormat; }
void Surface::setDataFormat(Format v) { rep_->dataFormat = v; }
unsigned short Surface::getBitsPerComponent() const { return rep_->bitsPerComponent; }
void Surface::setBitsPerComponent(unsigned short v) { rep_->bitsPerComponent = v; }
unsigned short Surface::getBitsPerPixel() const { return rep_->bitsPerPixel; }
void Surface::setBitsPerPixel(unsigned short v) { rep_->bitsPerPixel = v; }
bool Surface::getCoreDataSet() const { return rep_->coreDataSet; }
void Surface::setCoreDataSet(bool v) { rep_->coreDataSet = v; }

bool Surface::getIsTopDown() const { return rep_->isTopDown; }
void Surface::setIsTopDown(bool v) { rep_->isTopDown = v; }
unsigned int Surface::getStride() const { return rep_->stride; }
void Surface::setStride(unsigned int v) { rep_->stride = v; }
unsigned short Surface::getStrideMultiplier() const { return rep_->strideMultiplier; }
void Surface::setStrideMultiplier(unsigned short v) { rep_->strideMultiplier = v; }
bool Surface::getBufferFormatDataSet() const { return rep_->bufferFormatDataSet; }
void Surface::setBufferFormatDataSet(bool v) { rep_->bufferFormatDataSet = v; }

ScanMode Surface::getScanMode() const { return rep_->scanMode; }
void Surface::setScanMode(ScanMode v) { rep_->scanMode = v; }
AspectRatio Surface::getAspectRatio() const { return rep_->aspectRatio; }
void Surface::setAspectRatio(AspectRatio v) { rep_->aspectRatio = v; }
unsigned int Surface::getVideoFormatUID() const { return rep_->videoFormatUID; }
void Surface::setVideoFormatUID(unsigned int v) { rep_->videoFormatUID = v; }
bool Surface::getVideoDataSet() const { return rep_->videoDataSet; }
void Surface::setVideoDataSet(bool v) { rep_->videoDataSet = v; }

Polarity Surface::getPolarity() const { return rep_->polarity; }
void Surface::setPolarity(Polarity v) { rep_->polarity = v; }
Colorimetry Surface::getColorimetry() const { return rep_->colorimetry; }
void Surface::setColorimetry(Colorimetry v) { rep_->colorimetry = v; }
bool Surface::getIsVideoGamutScaled() const { return rep_->isVideoGamutScaled; }
void Surface::setIsVideoGamutScaled(bool v) { rep_->isVideoGamutScaled = v; }
bool Surface::getVideoSampleDataSet() const { return rep_->videoSampleDataSet; }
void Surface::setVideoSampleDataSet(bool v) { rep_->videoSampleDataSet = v; }

}  // namespace Kv::Image
