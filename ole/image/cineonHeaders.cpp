// The Cineon and DPX header images: the byte order a file is in, and the geometry that the
// pixel readers take from a header. See cineon.h.

#include <cstddef>
#include <cstring>
#include <limits>

#include "ole/image/cineon.h"
#include "ole/image/cineonInternal.h"
#include "ole/platform/settings/KvSettings.h"

// The header images are the files' bytes: every field at its place in the file.
static_assert(sizeof(FourByteReorderable<unsigned int>) == 4);
static_assert(sizeof(CINFile::Header) == 2048);
static_assert(offsetof(CINFile::Header, imageInfo) == 192);
static_assert(offsetof(CINFile::Header, imageInfo.orientation) == 192);
static_assert(offsetof(CINFile::Header, imageInfo.channels[0].bitsPerSample) == 198);
static_assert(offsetof(CINFile::Header, imageInfo.channels[0].pixelsPerLine) == 200);
static_assert(offsetof(CINFile::Header, imageInfo.channels[0].lines) == 204);
static_assert(offsetof(CINFile::Header, dataFormat) == 680);
static_assert(offsetof(CINFile::Header, dataFormat.packing) == 681);
static_assert(offsetof(CINFile::Header, dataFormat.lineEndPadding) == 684);
static_assert(offsetof(CINFile::Header, origination) == 712);
static_assert(offsetof(CINFile::Header, last) == 1024);

static_assert(sizeof(DPXFile::FileInfo) == 768);
static_assert(offsetof(DPXFile::FileInfo, encryptionKey) == 660);
static_assert(sizeof(DPXFile::ImageInfo) == 640);
static_assert(sizeof(DPXFile::ImageElement) == 72);
static_assert(768 + offsetof(DPXFile::ImageInfo, chans_[0].descriptor) == 800);
static_assert(768 + offsetof(DPXFile::ImageInfo, chans_[0].packing) == 804);
static_assert(768 + offsetof(DPXFile::ImageInfo, chans_[0].encoding) == 806);
static_assert(768 + offsetof(DPXFile::ImageInfo, chans_[0].lineEndPadding) == 812);
static_assert(sizeof(DPXFile::OrientationInfo) == 256);
static_assert(1408 + offsetof(DPXFile::OrientationInfo, sourceWidth) == 1424);
static_assert(1408 + offsetof(DPXFile::OrientationInfo, pixelAspect) == 1628);
static_assert(sizeof(DPXFile::FilmInfo) == 256);
static_assert(1664 + offsetof(DPXFile::FilmInfo, format) == 1680);
static_assert(1664 + offsetof(DPXFile::FilmInfo, frameRate) == 1724);
static_assert(sizeof(DPXFile::TelevisionInfo) == 128);

namespace Kv::Image::CineonDetail {

const DpxSettings& dpxSettings()
{
    static const DpxSettings settings{
        config_int("dpx_force_linear", 0) != 0,
        config_int("dpx_force_log", 0) != 0,
        static_cast<unsigned short>(config_int("dpx_log2lin_black_level", 95)),
        static_cast<unsigned short>(config_int("dpx_log2lin_white_level", 685)),
    };
    return settings;
}

namespace {
// Read when the library loads, like every setting of the library.
[[maybe_unused]] const DpxSettings& settingsAtLoad = dpxSettings();
}  // namespace

bool pictureFits(unsigned int width, unsigned int height, unsigned int bitsPerPixel,
                 std::uint64_t fileBytes)
{
    // A surface works out its line as width * bitsPerPixel and its memory as line * height,
    // both in 32 bits.
    const std::uint64_t lineBits = std::uint64_t(width) * bitsPerPixel;
    if (lineBits > std::numeric_limits<unsigned int>::max()) return false;
    const std::uint64_t bytes = (lineBits >> 3) * height;
    if (bytes > std::uint64_t(std::numeric_limits<int>::max())) return false;
    return bytes <= kUnbackedBytes || bytes / kBytesPerFileByte <= fileBytes;
}

std::uint64_t bytesFrom(iFile& file, std::uint64_t offset)
{
    const std::uint64_t size = file.size();
    return size > offset ? size - offset : 0;
}

std::uint64_t bytesAhead(iFile& file) { return bytesFrom(file, file.tell()); }

}  // namespace Kv::Image::CineonDetail

// ---------------------------------------------------------------------------------------------
// CineonFileBase

CineonFileBase::CineonFileBase(FilePtr file_) : needsReorder(0), file(std::move(file_)) {}

// ---------------------------------------------------------------------------------------------
// CINFile

// The header image starts as zeros: a header-only save writes it as it is, and a file cut
// short leaves what it did not reach at zero.
CINFile::CINFile(FilePtr file_) : CineonFileBase(std::move(file_)), header_{} {}

bool CINFile::isValidSignature(FourByteReorderable<unsigned int> signature)
{
    return signature.matches(magic);
}

unsigned int CINFile::getWidth() const { return fromFile(header_.imageInfo.channels[0].pixelsPerLine); }

unsigned int CINFile::getHeight() const { return fromFile(header_.imageInfo.channels[0].lines); }

unsigned char CINFile::getBitDepth() const { return header_.imageInfo.channels[0].bitsPerSample; }

unsigned short CINFile::getStride() const
{
    const unsigned int padding = fromFile(header_.dataFormat.lineEndPadding);
    unsigned int line = getWidth() * 4;
    if (padding < 4) line += padding;
    return static_cast<unsigned short>(line);
}

CineonFileBase::ComponentShiftSizes CINFile::getComponentShiftSizes() const
{
    // Packing 5 puts the two unused bits at the bottom of the word, like DPX.
    if (header_.dataFormat.packing == 5) return {2, 12, 22};
    return {0, 10, 20};
}

// ---------------------------------------------------------------------------------------------
// DPXFile

DPXFile::DPXFile(FilePtr file_)
    : CineonFileBase(std::move(file_)), fileInfo_{}, imageInfo_{}, orientationInfo_{}, filmInfo_{},
      televisionInfo_{}
{
}

bool DPXFile::isValidSignature(FourByteReorderable<unsigned int> signature)
{
    return signature.matches(magic);
}

unsigned int DPXFile::getWidth() const { return fromFile(imageInfo_.pixelsPerLine); }

unsigned int DPXFile::getHeight() const { return fromFile(imageInfo_.lines); }

unsigned char DPXFile::getBitDepth() const { return imageInfo_.chans_[0].bitSize; }

unsigned short DPXFile::getStride() const
{
    const ImageElement& element = imageInfo_.chans_[0];
    const unsigned int width = getWidth();
    switch (element.descriptor) {
    case DescriptorRGB: {
        const unsigned int depth = element.bitSize;
        const unsigned int pixelBytes = depth == 10 ? 4 : depth == 16 ? 6 : 3;
        // A padding of a whole pixel or more is junk in the field, and counts as none.
        const unsigned int padding = fromFile(element.lineEndPadding);
        unsigned int line = width * pixelBytes;
        if (padding < pixelBytes) line += padding;
        return static_cast<unsigned short>(line);
    }
    case DescriptorCbYCrY:
        // Four words for each six pixels.
        return element.bitSize == 10 ? static_cast<unsigned short>((width / 6) * 16) : 0;
    default:
        return 0;
    }
}

CineonFileBase::ComponentShiftSizes DPXFile::getComponentShiftSizes() const { return {2, 12, 22}; }
