// Cineon and DPX as whole files: the choice of reader by the first bytes, the loads with the
// metadata a DPX file carries (timecode, film key number, frame rate, reel name), and the
// writers. See cineon.h.

#include "ole/image/cineon.h"

#include <algorithm>
#include <cstring>
#include <cwctype>
#include <vector>

#include "ole/image/ImageConvert.h"
#include "ole/image/cineonInternal.h"
#include "ole/misc/KvSplit.h"
#include "ole/platform/labels/KvCurrentProject.h"
#include "ole/platform/os/KvAssert.h"
#include "ole/platform/settings/KvResources.h"
#include "ole/platform/text/KvText.h"

using namespace Kv::Image;
using Kv::Image::CineonDetail::bytesFrom;
using Kv::Image::CineonDetail::pictureFits;

namespace {

constexpr Format kPacked10BitRGB = Format(35);
constexpr unsigned int kHeaderBytes = 2048;

// Folder names that say only what kind of files a folder holds, and so name no reel.
constexpr int kDpxFolderText = 10135;
constexpr int kCineonFolderText = 10136;

bool sameTextIgnoringCase(const LightweightString<wchar_t>& a, const LightweightString<wchar_t>& b)
{
    if (a.size() != b.size()) return false;
    for (unsigned int i = 0; i < a.size(); ++i)
        if (std::towlower(wint_t(a[i])) != std::towlower(wint_t(b[i]))) return false;
    return true;
}

// Up to `n` characters of `text` from place `from`, stopping at its end; the rest of the field
// is zero.
void copyField(char* field, std::size_t n, const LightweightString<char>& text, unsigned int from)
{
    std::memset(field, 0, n);
    for (std::size_t i = 0; i < n && from + i < text.size() && text[unsigned(from + i)] != 0; ++i)
        field[i] = text[unsigned(from + i)];
}

// A picture's memory, zeroed, for a surface described without it.
void allocateZeroed(Surface& surface)
{
    const unsigned int bytes = surface.getStride() * surface.getHeight();
    if (bytes == 0) return;
    auto* buffer = new ByteBufferImpl(bytes);
    MemHolderPtr holder(buffer);
    buffer->alloc(bytes);
    std::memset(buffer->getBuffer(), 0, bytes);
    surface.setDataPtr(holder);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Loading

Surface CINFile::load(const Core::Data& outputFormat, StillImageMetadata*)
{
    const XY<int> size(int(outputFormat.getWidth()), int(outputFormat.getHeight()));
    file->readAt(0, &header_.fileInfo, sizeof header_.fileInfo);
    needsReorder = header_.fileInfo.magic == magic ? 0 : 1;
    file->read(&header_.imageInfo, sizeof header_.imageInfo);
    file->read(&header_.dataFormat, sizeof header_.dataFormat);
    file->read(header_.origination, sizeof header_.origination);
    file->read(header_.last, sizeof header_.last);

    const unsigned char packing = header_.dataFormat.packing;
    if (getWidth() == 0 || getHeight() == 0 || header_.imageInfo.orientation > 1 ||
        (packing != 5 && packing != 6) || header_.dataFormat.interleave != 0)
        return Surface();
    // An offset past the end of the file is taken as a seek that failed.
    const std::uint64_t offset = fromFile(header_.fileInfo.imageOffset);
    if (offset > file->size() || !file->seek(offset)) return Surface();
    if (getBitDepth() != 10) return Surface();
    // A Cineon scan is always logarithmic, and always arrives as 8-bit display values.
    return do10BitTo8BitConversion(size, Logarithmic);
}

Surface DPXFile::load(const Core::Data& outputFormat, StillImageMetadata* metadata)
{
    Surface surface;
    file->readAt(0, &fileInfo_, sizeof fileInfo_);
    needsReorder = fileInfo_.magic == magic ? 0 : 1;
    file->read(&imageInfo_, sizeof imageInfo_);
    file->read(&orientationInfo_, sizeof orientationInfo_);
    file->read(&filmInfo_, sizeof filmInfo_);
    file->read(&televisionInfo_, sizeof televisionInfo_);

    // Reports only: the picture is read as if both were 0. Zero reads the same in either order.
    KV_ASSERT(imageInfo_.orientation == LRTB);
    KV_ASSERT(imageInfo_.chans_[ 0 ].encoding == Uncompressed);

    const ImageElement& element = imageInfo_.chans_[0];
    const std::uint64_t offset = fromFile(fileInfo_.imageOffset);
    if (outputFormat.getCoreDataSet()) {
        // An offset past the end of the file is taken as a seek that failed.
        if (offset <= file->size() && file->seek(offset)) {
            if (element.descriptor == DescriptorRGB)
                surface = loadRGB(outputFormat, PixelTransfer(element.transfer));
            else if (element.descriptor == DescriptorCbYCrY)
                surface = loadYUV(outputFormat);
        }
    } else {
        // Only the description is wanted.
        surface.setWidth(getWidth());
        surface.setHeight(getHeight());
        surface.setBitsPerComponent(getBitDepth());
        switch (element.descriptor) {
        case DescriptorRGB: surface.setDataFormat(RGB); break;
        case DescriptorRGBA: surface.setDataFormat(Format(38)); break;
        case DescriptorABGR: surface.setDataFormat(Format(31)); break;
        case DescriptorCbYCrY:
        case DescriptorCbYACrYA:
        case DescriptorCbYCr:
        case DescriptorCbYCrA: surface.setDataFormat(YUY2); break;
        default: KV_ASSERT(false); break;
        }
        surface.setCoreDataSet(true);
    }
    surface.setIsTopDown(true);

    // Into the caller's format and depth, where they are given and differ.
    const Format targetFormat =
        outputFormat.getDataFormat() != InvalidFormat ? outputFormat.getDataFormat() : surface.getDataFormat();
    const unsigned short targetDepth =
        outputFormat.getBitsPerComponent() != 0 ? outputFormat.getBitsPerComponent() : surface.getBitsPerComponent();
    if (targetFormat == surface.getDataFormat() && targetDepth == surface.getBitsPerComponent()) {
        KV_ASSERT(outputFormat.getDataFormat() == InvalidFormat || outputFormat.getDataFormat() == surface.getDataFormat());
    } else {
        Surface converted(surface.getWidth(), surface.getHeight(), targetFormat, false, targetDepth, 0, 0);
        // A picture the file cannot justify keeps its own form rather than take memory.
        if (pictureFits(converted.getWidth(), converted.getHeight(), converted.getBitsPerPixel(),
                        bytesFrom(*file, offset))) {
            allocateZeroed(converted);
            ImageConverter::convert(surface, converted);
            surface = converted;
        }
    }

    // The rate is a float, reversed like any 32-bit field.
    std::uint32_t rateBits;
    std::memcpy(&rateBits, &filmInfo_.frameRate, 4);
    rateBits = fromFile(rateBits);
    float rate;
    std::memcpy(&rate, &rateBits, 4);
    const double fps = rate;
    const Kv::FrameRate frameRate = fps != 0.0 ? Kv::getEquivalentKvFrameRate(fps) : Kv::FrameRate(0);

    if (!metadata) return surface;
    if (frameRate != 0) metadata->frameRate = frameRate;
    metadata->timecode = readTimecodeFromHeader();
    metadata->keykode = readKeykodeFromHeader();
    return surface;
}

EditLabel DPXFile::readTimecodeFromHeader() const
{
    EditLabel label{label_t(0)};
    label.init(MediumRollIdent(MediumRollMedium(1), 1));
    const std::uint32_t word = fromFile(televisionInfo_.timeCode);
    if (word == 0) return label;

    const MediumRollMedium medium = getDefaultEditMediumForProject();
    label.set_type(getDefaultLabelTypeForMedium(medium));
    label.set_MediumRoll(MediumRollIdent(medium, 2));
    bool dropFrame = false;
    const int sample = label.get_samples_from_SMPTETc(word, dropFrame);
    // A project at the 30-frame count takes the file's own counting.
    if (Kv::CurrentProject::getFrameRate(Kv::CurrentProject::Revision(0)) == Kv::FrameRate(4))
        label.set_type(dropFrame ? label_t(7) : label_t(6));
    label.set_posn(label.cvt().sample_to_posn(sample));
    label.set_valid(true);
    return label;
}

EditLabel DPXFile::readKeykodeFromHeader() const
{
    EditLabel label{label_t(0)};
    label.init(MediumRollIdent(MediumRollMedium(1), 1));
    if (filmInfo_.manufacturer[0] == 0 && filmInfo_.manufacturer[1] == 0) return label;

    // "academy" and every format not known read as 35 mm 4-perf.
    const char* format = filmInfo_.format;
    const label_t type = std::memcmp(format, "3-perf", 6) == 0  ? label_t(12)
                         : std::memcmp(format, "16 mm", 5) == 0 ? label_t(11)
                                                                 : label_t(10);
    label.set_type(type);
    label.set_MediumRoll(MediumRollIdent(MediumRollMedium(2), 1));

    // manufacturer, prefix, count, '+', perforation offset: 15 places. The character at place
    // 12 is not stored. An unset place reads as a blank.
    char text[16];
    std::memcpy(text, filmInfo_.manufacturer, 2);
    std::memcpy(text + 2, filmInfo_.prefix, 6);
    std::memcpy(text + 8, filmInfo_.count, 4);
    text[12] = '+';
    std::memcpy(text + 13, filmInfo_.perforationOffset, 2);
    text[15] = 0;
    for (int i = 0; i < 15; ++i)
        if (text[i] == 0) text[i] = ' ';
    // Text that does not read as a key leaves the label invalid.
    label.set_string(text);
    return label;
}

// ---------------------------------------------------------------------------------------------
// Saving

int CINFile::save(const Surface&)
{
    // The header image is written as it stands, and nothing has filled it: the magic number
    // written first is overwritten by it.
    needsReorder = 0;
    const std::uint32_t word = magic;
    file->write(&word, 4);
    file->writeAt(0, &header_, 768);
    file->writeAt(0, &header_, 192);
    needsReorder = header_.fileInfo.magic == magic ? 0 : 1;
    file->write(&header_.imageInfo, sizeof header_.imageInfo);
    file->write(&header_.dataFormat, sizeof header_.dataFormat);
    file->write(header_.origination, sizeof header_.origination);
    file->write(header_.last, sizeof header_.last);
    return 1;
}

int DPXFile::save(const Surface& surface, EditLabel* timecode, EditLabel* keykode, MediumRollMedium medium,
                  double unused, int frame)
{
    const Format format = surface.getDataFormat();
    if (format == RGB || format == kPacked10BitRGB) return saveInternal(surface, timecode, keykode, medium, unused, frame);
    if (format == ARGB) {
        // Alpha is not kept. The copy takes less memory than the picture has, or is not made.
        if (!pictureFits(surface.getWidth(), surface.getHeight(), 24, surface.holderBytesFrom(surface.getDataPtr())))
            return 0;
        Surface rgb(surface.getWidth(), surface.getHeight(), RGB, false, 0, 0, 0);
        allocateZeroed(rgb);
        ImageConverter::convert(surface, rgb);
        if (rgb.getDataFormat() != ARGB) return save(rgb, timecode, keykode, medium, unused, frame);
    }
    KV_ASSERT(false);
    return 0;
}

int DPXFile::saveInternal(const Surface& surface, EditLabel* timecode, EditLabel* keykode,
                          MediumRollMedium medium, double, int frame)
{
    needsReorder = 0;
    const unsigned int width = surface.getWidth();
    const unsigned int height = surface.getHeight();

    fileInfo_ = {};
    fileInfo_.magic = magic;
    fileInfo_.imageOffset = kHeaderBytes;
    std::memcpy(fileInfo_.version, "V1.0", 4);
    fileInfo_.fileSize = surface.getImageSize() + kHeaderBytes;
    fileInfo_.encryptionKey = 0xFFFFFFFFu;
    file->write(&fileInfo_, sizeof fileInfo_);

    imageInfo_ = {};
    imageInfo_.orientation = LRTB;
    imageInfo_.elementCount = 1;
    imageInfo_.pixelsPerLine = width;
    imageInfo_.lines = height;
    ImageElement& element = imageInfo_.chans_[0];
    element.descriptor = DescriptorRGB;
    element.transfer = Linear;
    // Standard definition is at most 720 pixels wide, and takes its colours from it.
    element.colorimetric = width < 721 ? 8 : 6;
    element.bitSize = static_cast<unsigned char>(surface.getBitsPerComponent());
    element.packing = 1;
    element.encoding = Uncompressed;
    file->write(&imageInfo_, sizeof imageInfo_);

    orientationInfo_ = {};
    orientationInfo_.sourceWidth = width;
    orientationInfo_.sourceHeight = height;
    orientationInfo_.pixelAspect[0] = 1;
    orientationInfo_.pixelAspect[1] = 1;
    file->write(&orientationInfo_, sizeof orientationInfo_);

    filmInfo_ = {};
    if (keykode && keykode->is_valid()) {
        const LightweightString<char> key = keykode->get_string(frame * keykode->cvt().samples_per_frame());
        copyField(filmInfo_.manufacturer, 2, key, 0);
        copyField(filmInfo_.prefix, 6, key, 2);
        copyField(filmInfo_.count, 4, key, 8);
        copyField(filmInfo_.perforationOffset, 2, key, 13);
        const char* format = keykode->get_type() == label_t(11)   ? "16 mm"
                             : keykode->get_type() == label_t(12) ? "3-perf"
                                                                  : "academy";
        std::strncpy(filmInfo_.format, format, sizeof filmInfo_.format - 1);
    }
    file->write(&filmInfo_, sizeof filmInfo_);

    televisionInfo_ = {};
    if (timecode && timecode->is_valid()) {
        const double position = Kv::getFrameDuration(getFrameRatefromMedium(medium)) * double(frame);
        televisionInfo_.timeCode = timecode->get_smpte_string(timecode->posn_to_sample(position));
    }
    file->write(&televisionInfo_, sizeof televisionInfo_);

    unsigned char* data = surface.getDataPtr();
    const std::size_t memory = surface.holderBytesFrom(data);
    if (surface.getBitsPerComponent() == 8) {
        // The lines as they lie, padding and all, though the header says there is none.
        file->write(data, unsigned(std::min<std::size_t>(surface.getImageSize(), memory)));
        return 1;
    }

    // 32-bit words, packed from the first with no regard to the surface's stride, each moved up
    // two bits to where DPX packing 1 has its components. Every depth but 8 comes this way.
    const unsigned int stride = getStride();
    const std::size_t words = memory / 4;
    const std::size_t lineWords = std::min<std::size_t>(width, words);
    std::vector<unsigned char> line(std::max<std::size_t>(stride, lineWords * 4));
    for (unsigned int y = 0; y < height; ++y) {
        const std::size_t first = std::size_t(y) * width;
        const std::size_t have = first < words ? std::min<std::size_t>(lineWords, words - first) : 0;
        for (std::size_t x = 0; x < have; ++x) {
            std::uint32_t word;
            std::memcpy(&word, data + (first + x) * 4, 4);
            word <<= 2;
            std::memcpy(line.data() + x * 4, &word, 4);
        }
        std::fill(line.begin() + std::ptrdiff_t(have * 4), line.begin() + std::ptrdiff_t(lineWords * 4), 0);
        file->write(line.data(), stride);
    }
    return 1;
}

// ---------------------------------------------------------------------------------------------
// The entry functions

Surface loadCineonImage(const LightweightString<wchar_t>& path, const Core::Data& outputFormat,
                        StillImageMetadata* metadata)
{
    Surface surface;
    CineonFileBase::FilePtr file = OS()->fileSystem()->open(path, 1, 0, 1, 0);
    if (!file) return surface;
    FourByteReorderable<unsigned int> signature{0};
    file->read(&signature.value, 4);
    if (CINFile::isValidSignature(signature)) {
        // No metadata for Cineon, not even the reel name.
        CINFile cineon(file);
        return cineon.load(outputFormat, metadata);
    }
    if (!DPXFile::isValidSignature(signature)) return surface;
    {
        DPXFile dpx(file);
        surface = dpx.load(outputFormat, metadata);
    }

    // The reel is named by the file's folder; a folder named only for the kind of its files
    // takes the name of the folder above it as well.
    Kv::StringToVec<LightweightString<wchar_t>>::VecT pieces;
    const unsigned int nstrs =
        Kv::splitIf(path, Kv::IsMatchingChar<wchar_t>(OS()->fileSystem()->pathSeparator()), pieces, 1);
    if (nstrs < 2) return surface;
    LightweightString<wchar_t> reel = pieces[nstrs - 2];
    if (sameTextIgnoringCase(reel, resourceStrW(kDpxFolderText)) ||
        sameTextIgnoringCase(reel, resourceStrW(kCineonFolderText))) {
        KV_ASSERT(nstrs >= 3);
        // With no folder above, the folder's own name stands alone.
        if (nstrs >= 3) {
            LightweightString<wchar_t> joined = pieces[nstrs - 3];
            joined += L" ";
            joined += reel;
            reel = joined;
        }
    }
    if (metadata) metadata->attributes.set("reel_id", toUTF8(reel).c_str(), nullptr);
    return surface;
}

int saveCineonImage(const Surface& surface, const LightweightString<wchar_t>& path)
{
    if (!surface.valid() || !surface.getDataPtr() || surface.getImageSize() == 0) return 0;
    CineonFileBase::FilePtr file = OS()->fileSystem()->open(path, 2, 3, 0, 0);
    if (!file) return 0;
    CINFile cineon(file);
    return cineon.save(surface);
}

int saveDPXImage(const Surface& surface, const LightweightString<wchar_t>& path, EditLabel* timecode,
                 EditLabel* keykode, MediumRollMedium medium, double unused, int frame)
{
    if (!surface.valid() || !surface.getDataPtr() || surface.getImageSize() == 0) return 0;
    CineonFileBase::FilePtr file = OS()->fileSystem()->open(path, 2, 3, 0, 0);
    if (!file) return 0;
    DPXFile dpx(file);
    return dpx.save(surface, timecode, keykode, medium, unused, frame);
}
