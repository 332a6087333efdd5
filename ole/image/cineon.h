#pragma once
// Cineon and DPX, the two film-scan still formats: 2048 bytes of header, then the pixels.
//
// The file classes are images of their headers, byte for byte as in the file, with the few
// fields a load needs read through them. A Cineon file is always read as 10-bit logarithmic
// scan data into 8-bit display values. A DPX file is read by its descriptor: RGB at 8, 10 or
// 16 bits, or 10-bit 4:2:2 YUV; a DPX file is written as RGB with its timecode and film key
// number. The pixel readers keep to one step in every line and column, a power of two, so that
// a thumbnail of a 4K scan reads one line in that step and seeks over the others.
//
// Reading keeps to the memory it owns, whatever the header says: a picture whose memory the
// file cannot justify is refused (see the limits in cineonInternal.h), and lines, groups and
// buffers stop at the edge of their memory.
//
// The sources: cineonHeaders.cpp (header images, geometry), cineonPixels.cpp (pixel transfer),
// cineon.cpp (whole files, metadata, saving).

#include <cstdint>

#include "ole/Kv/KvPtr.h"
#include "ole/image/KvImageDescriptors.h"
#include "ole/image/KvSurface.h"
#include "ole/misc/LightweightString.h"
#include "ole/misc/XY.h"
#include "ole/platform/labels/KvFrameRate.h"
#include "ole/platform/labels/KvLabel.h"
#include "ole/platform/os/KvPlatformExport.h"
#include "ole/platform/os/OS.h"
#include "ole/platform/settings/configb.h"

// What a still-image load tells about the picture beside its pixels.
struct StillImageMetadata {
    EditLabel timecode;       // the file's SMPTE timecode
    EditLabel keykode;        // the film key number
    Kv::FrameRate frameRate;  // the nearest known rate; left alone when the file has none
    configb attributes;       // free key/value text: "reel_id"
};

// The first four bytes of a file, as they lie on disk, read as a host-order number.
template <class T>
struct FourByteReorderable {
    T value;

    T reversed() const noexcept { return T(__builtin_bswap32(std::uint32_t(value))); }
    // True when the value in either byte order is `magic`.
    bool matches(T magic) const noexcept { return value == magic || reversed() == magic; }
};

// One pixel of 4:2:2 video after the chroma of its pair has been shared out: three 10-bit
// samples.
template <class T>
struct YUVTriple {
    T y;
    T u;
    T v;
};

// What the two formats share: the open file, the byte order of its header, and the pixel
// readers that work from the geometry a header gives. The objects live on the stack of the
// entry functions, for one load or one save.
class KV_EXPORT CineonFileBase {
public:
    using FilePtr = Kv::Ptr<iFile, Kv::DtorTraits, Kv::InternalRefCountTraits>;

    // The numbers of the DPX transfer byte.
    enum PixelTransfer : std::int32_t {
        Linear = 2,
        Logarithmic = 3,
    };

    // The right shifts that bring each 10-bit component of a stored 32-bit pixel to bit 0.
    struct ComponentShiftSizes {
        unsigned char blueShift;
        unsigned char greenShift;
        unsigned char redShift;
    };

    virtual unsigned int getWidth() const = 0;
    virtual unsigned int getHeight() const = 0;
    // The bytes of one stored line, padding included, in 16 bits.
    virtual unsigned short getStride() const = 0;
    virtual unsigned char getBitDepth() const = 0;
    virtual ComponentShiftSizes getComponentShiftSizes() const = 0;

    // The largest power of two by which the stored width halves exactly while staying at or
    // above `targetSize`; 1 when the width is odd, smaller than the target or less than twice it.
    unsigned int calcPixelStep(unsigned int targetSize) const;

    // Each reads from where the file stands (at the image data) at most `size`, thinned by
    // calcPixelStep of the smaller of its two numbers. 10-bit words, one a pixel, through a
    // 1024-entry table into opaque 8-bit ARGB.
    Kv::Image::Surface do10BitTo8BitConversion(XY<int> size, PixelTransfer encoding);
    // The same with a 65536-entry table built for 16-bit codes; the pixel loop is that of the
    // 10-bit reader, word for word.
    Kv::Image::Surface do16BitTo8BitConversion(XY<int> size, PixelTransfer encoding);
    // 10-bit words into format 35, the two top bits set; `encoding` is not used.
    Kv::Image::Surface do10BitTo10BitConversion(XY<int> size, PixelTransfer encoding);

    // 0: the header's numbers are in host order; 1: each is byte-reversed.
    std::int32_t needsReorder;
    FilePtr file;

protected:
    explicit CineonFileBase(FilePtr file_);
    // The objects are never deleted through the base.
    ~CineonFileBase() = default;

    // A header number as the host reads it.
    std::uint32_t fromFile(std::uint32_t stored) const noexcept
    {
        return needsReorder == 1 ? __builtin_bswap32(stored) : stored;
    }

private:
    template <class Pixel>
    Kv::Image::Surface convertLines(XY<int> size, Kv::Image::Format format, Pixel pixel);
};

// A Cineon file. Its header: file information (192 bytes), image information (488), data
// format (32), origination (312) and a last block (1024).
class KV_EXPORT CINFile : public CineonFileBase {
public:
    static constexpr std::uint32_t magic = 0x802A5FD7;

    struct FileInfo {
        std::uint32_t magic;
        std::uint32_t imageOffset;
        std::uint32_t genericSize;
        std::uint32_t industrySize;
        std::uint32_t userSize;
        std::uint32_t fileSize;
        char version[8];
        char fileName[100];
        char date[12];
        char time[12];
        char reserved[36];
    };
    struct Channel {
        unsigned char designator[2];
        unsigned char bitsPerSample;
        unsigned char unused;
        std::uint32_t pixelsPerLine;
        std::uint32_t lines;
        float minData;
        float minQuantity;
        float maxData;
        float maxQuantity;
    };
    struct ImageInfo {
        unsigned char orientation;
        unsigned char channelCount;
        unsigned char unused[2];
        Channel channels[8];
        unsigned char whitePointAndPrimaries[260];
    };
    struct DataFormat {
        unsigned char interleave;
        unsigned char packing;
        unsigned char sign;
        unsigned char sense;
        std::uint32_t lineEndPadding;
        std::uint32_t channelEndPadding;
        unsigned char reserved[20];
    };
    struct Header {
        FileInfo fileInfo;
        ImageInfo imageInfo;
        DataFormat dataFormat;
        unsigned char origination[312];
        unsigned char last[1024];
    };

    explicit CINFile(FilePtr file_);

    static bool isValidSignature(FourByteReorderable<unsigned int> signature);

    unsigned int getWidth() const override;
    unsigned int getHeight() const override;
    unsigned short getStride() const override;
    unsigned char getBitDepth() const override;
    ComponentShiftSizes getComponentShiftSizes() const override;

    // A logarithmic 10-bit scan into 8-bit ARGB at most the size asked for; empty for a header
    // this reader does not take. The metadata is not used.
    Kv::Image::Surface load(const Kv::Image::Core::Data& outputFormat, StillImageMetadata* metadata);
    // A header pass only: no pixels are written. Returns 1.
    int save(const Kv::Image::Surface& surface);

    Header header_;
};

// A DPX file. Its header: file information (768 bytes), image information (640), orientation
// (256), film (256) and television (128).
class KV_EXPORT DPXFile : public CineonFileBase {
public:
    static constexpr std::uint32_t magic = 0x53445058;  // "XPDS" in a little-endian file

    enum Orientation : std::uint16_t { LRTB = 0 };
    enum Encoding : std::uint16_t { Uncompressed = 0 };
    // Descriptors of an image element that a load knows.
    enum Descriptor : unsigned char {
        DescriptorRGB = 50,
        DescriptorRGBA = 51,
        DescriptorABGR = 52,
        DescriptorCbYCrY = 100,
        DescriptorCbYACrYA = 101,
        DescriptorCbYCr = 102,
        DescriptorCbYCrA = 103,
    };

    struct FileInfo {
        std::uint32_t magic;
        std::uint32_t imageOffset;
        char version[8];
        std::uint32_t fileSize;
        std::uint32_t dittoKey;
        std::uint32_t genericSize;
        std::uint32_t industrySize;
        std::uint32_t userSize;
        char fileName[100];
        char creationTime[24];
        char creator[100];
        char project[200];
        char copyright[200];
        std::uint32_t encryptionKey;
        char reserved[104];
    };
    struct ImageElement {
        std::uint32_t dataSign;
        std::uint32_t lowData;
        float lowQuantity;
        std::uint32_t highData;
        float highQuantity;
        unsigned char descriptor;
        unsigned char transfer;
        unsigned char colorimetric;
        unsigned char bitSize;
        std::uint16_t packing;
        std::uint16_t encoding;
        std::uint32_t dataOffset;
        std::uint32_t lineEndPadding;
        std::uint32_t imageEndPadding;
        char description[32];
    };
    struct ImageInfo {
        std::uint16_t orientation;
        std::uint16_t elementCount;
        std::uint32_t pixelsPerLine;
        std::uint32_t lines;
        ImageElement chans_[8];
        char reserved[52];
    };
    struct OrientationInfo {
        std::uint32_t xOffset;
        std::uint32_t yOffset;
        float xCentre;
        float yCentre;
        std::uint32_t sourceWidth;
        std::uint32_t sourceHeight;
        char sourceFileName[100];
        char sourceTime[24];
        char inputDevice[32];
        char inputSerial[32];
        std::uint16_t border[4];
        std::uint32_t pixelAspect[2];
        char reserved[28];
    };
    struct FilmInfo {
        char manufacturer[2];
        char filmType[2];
        char perforationOffset[2];
        char prefix[6];
        char count[4];
        char format[32];
        std::uint32_t framePosition;
        std::uint32_t sequenceLength;
        std::uint32_t heldCount;
        float frameRate;
        float shutterAngle;
        char frameId[32];
        char slate[100];
        char reserved[56];
    };
    struct TelevisionInfo {
        std::uint32_t timeCode;
        std::uint32_t userBits;
        unsigned char rest[120];
    };

    explicit DPXFile(FilePtr file_);

    static bool isValidSignature(FourByteReorderable<unsigned int> signature);

    unsigned int getWidth() const override;
    unsigned int getHeight() const override;
    unsigned short getStride() const override;
    unsigned char getBitDepth() const override;
    ComponentShiftSizes getComponentShiftSizes() const override;

    // The picture, or only its description when outputFormat's core data is not set; then the
    // metadata, when `metadata` is not null.
    Kv::Image::Surface load(const Kv::Image::Core::Data& outputFormat, StillImageMetadata* metadata);
    // RGB (8-bit lines as they lie, 10-bit words as DPX packs them) with both labels advanced
    // by `frame` frames; ARGB goes out as RGB. 0 for any other format.
    int save(const Kv::Image::Surface& surface, EditLabel* timecode, EditLabel* keykode,
             MediumRollMedium medium, double unused, int frame);
    int saveInternal(const Kv::Image::Surface& surface, EditLabel* timecode, EditLabel* keykode,
                     MediumRollMedium medium, double unused, int frame);

    // The RGB readers, chosen by depth and transfer (the transfer is read from the header).
    Kv::Image::Surface loadRGB(const Kv::Image::Core::Data& outputFormat, PixelTransfer transfer);
    // 10-bit 4:2:2 only; any other depth is logged and gives an empty surface.
    Kv::Image::Surface loadYUV(const Kv::Image::Core::Data& outputFormat);
    Kv::Image::Surface loadYUV10Bit(const XY<int>& size);

    // The labels the header carries; an invalid label where it carries none.
    EditLabel readTimecodeFromHeader() const;
    EditLabel readKeykodeFromHeader() const;

    FileInfo fileInfo_;
    ImageInfo imageInfo_;
    OrientationInfo orientationInfo_;
    FilmInfo filmInfo_;
    TelevisionInfo televisionInfo_;

private:
    Kv::Image::Surface plainRead(const Kv::Image::Core::Data& outputFormat, Kv::Image::Surface surface);
};

// Six pixels of DPX 4:2:2 from one group of four words, each word big-endian whatever the
// file's byte order; each pair of pixels shares one u and one v.
KV_EXPORT void YUVTriplesFromYUYVBuffer(unsigned int* group, YUVTriple<unsigned short>* triples);
// A pixel of format 35 (red in bits 29 to 20, green 19 to 10, blue 9 to 0) from full-range YUV.
KV_EXPORT unsigned int make10BitDword(YUVTriple<unsigned short>& triple);

// Reads a Cineon or DPX file by its first four bytes. An empty surface says nothing was loaded.
// For DPX `metadata`, if not null, takes the labels, the frame rate and the reel name.
KV_EXPORT Kv::Image::Surface loadCineonImage(const LightweightString<wchar_t>& path,
                                             const Kv::Image::Core::Data& outputFormat,
                                             StillImageMetadata* metadata);
// Writes a Cineon header with no pixels: 1, or 0 for an empty surface or a file that cannot be
// opened.
KV_EXPORT int saveCineonImage(const Kv::Image::Surface& surface, const LightweightString<wchar_t>& path);
// Writes a DPX file: 1, or 0 for an empty surface, a file that cannot be opened or a format
// the writer does not take. `frame` advances both labels; the double is not read.
KV_EXPORT int saveDPXImage(const Kv::Image::Surface& surface, const LightweightString<wchar_t>& path,
                           EditLabel* timecode, EditLabel* keykode, MediumRollMedium medium,
                           double unused, int frame);
