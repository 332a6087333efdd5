// ImageConverter's fields and frames: splitting a frame into its two fields and weaving them
// back, swapping the lines of each pair, merging line sets, and wrapping one field of a frame
// as a picture of its own without copying.
//
// In an interlaced frame the fields alternate line by line; in a back-to-back frame the first
// field fills the upper half of the buffer and the second the lower. Lines are copied whole,
// each walk saying which strides it reads, and every copy stays inside the memory of both
// pictures (ImageConvertWalk.h).

#include <algorithm>
#include <cstdint>

#include "ole/image/ImageConvert.h"
#include "ole/image/ImageConvertInternal.h"
#include "ole/image/ImageConvertWalk.h"
#include "ole/platform/os/KvAssert.h"

using namespace Kv::Image;
namespace W = Kv::Image::Walk;

namespace {

std::uint64_t holderSize(const Surface& s)
{
    const MemHolderPtr& holder = s.getMemHolder();
    return holder ? holder->getSize() : 0;
}

std::uintptr_t dataOf(const Surface& s) { return W::address(s.getDataPtr()); }

// A side of a walk over `s` that starts `offset` bytes into its data.
W::Side side(const Surface& s, std::int64_t offset, std::int64_t step)
{
    return W::Side{W::extentOf(s), dataOf(s) + std::uint64_t(offset), step};
}

// Packed bytes of one line: width times bits per pixel, in bytes.
std::uint64_t packedLine(const Surface& s) { return (std::uint64_t(s.getWidth()) * s.getBitsPerPixel()) >> 3; }

// The frame's scan mode, aspect ratio and video format on a surface made from it, which holds
// one field or the two woven; its polarity says which.
void describeFrom(Surface& out, const Surface& from, Polarity polarity)
{
    static_cast<Video::Interface&>(out) = static_cast<const Video::Interface&>(from);
    out.setPolarity(polarity);
    out.setColorimetry(from.getColorimetry());
    out.setIsVideoGamutScaled(from.getIsVideoGamutScaled());
    out.setVideoSampleDataSet(true);
}

// Weaves two fields into a frame. `lateFirstField` makes the first field run one line late on
// a top-down weave, the fault that DEBUG_interleave keeps for diagnosis; `quiet` drops the
// assertion prints.
bool weave(const Surface& field1, const Surface& field2, Surface& frame, bool topDown, bool lateFirstField,
           bool quiet)
{
    if (!frame.getDataPtr())
        frame.init(field1.getWidth(), field1.getHeight() + field2.getHeight(), field1.getDataFormat(), true,
                   field1.getBitsPerComponent(), field1.getBitsPerPixel(),
                   static_cast<unsigned short>(field1.getStride()));

    bool result = false;
    if (field1.getDataFormat() != field2.getDataFormat() || field2.getDataFormat() != frame.getDataFormat()) {
        if (!quiet) KV_ASSERT(false);
    } else if (field1.getHeight() != field2.getHeight() ||
               frame.getHeight() != 2 * std::uint64_t(field1.getHeight())) {
        if (!quiet) KV_ASSERT(false);
    } else if (field1.getStride() != field2.getStride() || field1.getStride() < frame.getStride()) {
        // Fields narrower than the frame's lines cannot fill them: refused without a word.
    } else {
        // Copies the frame's stride a line: reads the strides of the fields and of the frame.
        const std::int64_t S = frame.getStride(), fieldStride = field1.getStride();
        const std::uint64_t lines = field1.getHeight();
        const std::int64_t height = frame.getHeight();
        if (topDown && lateFirstField) {
            W::copyLines(lines, {W::LineCopy{side(frame, 0, 2 * S), side(field1, 0, 0), std::size_t(S), W::Run{0, 1}},
                                 W::LineCopy{side(frame, 0, 2 * S), side(field1, -fieldStride, fieldStride),
                                             std::size_t(S), W::Run{1, lines}},
                                 W::LineCopy{side(frame, S, 2 * S), side(field2, 0, fieldStride), std::size_t(S)}});
        } else if (topDown) {
            W::copyLines(lines, {W::LineCopy{side(frame, 0, 2 * S), side(field1, 0, fieldStride), std::size_t(S)},
                                 W::LineCopy{side(frame, S, 2 * S), side(field2, 0, fieldStride), std::size_t(S)}});
        } else {
            // From the frame's last pair upward: field 1 takes line height - 1 - 2y, field 2
            // the line above it.
            W::copyLines(lines, {W::LineCopy{side(frame, (height - 1) * S, -2 * S), side(field1, 0, fieldStride),
                                             std::size_t(S)},
                                 W::LineCopy{side(frame, (height - 2) * S, -2 * S), side(field2, 0, fieldStride),
                                             std::size_t(S)}});
        }
        frame.setIsTopDown(topDown);
        result = true;
    }
    describeFrom(frame, field1, InterlacedFieldsInAFrame);
    return result;
}

// A field as a picture of its own over a frame's pixels. The holder keeps the frame alive, and
// states no more memory than the frame has from the field's first byte on.
Surface wrapField(const Surface& frame, bool firstField, bool interlaced)
{
    Surface view;
    static_cast<Core::Interface&>(view) = static_cast<const Core::Interface&>(frame);
    static_cast<BufferFormat::Interface&>(view) = static_cast<const BufferFormat::Interface&>(frame);
    static_cast<Video::Interface&>(view) = static_cast<const Video::Interface&>(frame);
    static_cast<VideoSample::Interface&>(view) = static_cast<const VideoSample::Interface&>(frame);
    view.setPolarity(firstField ? FirstField : SecondField);
    const unsigned int fieldHeight = frame.getHeight() >> 1;
    view.setHeight(fieldHeight);
    view.setBitsPerComponent(frame.getBitsPerComponent());
    view.setBitsPerPixel(frame.getBitsPerPixel());

    const std::uint64_t stride = frame.getStride();
    std::uint64_t offset = 0;
    if (interlaced) {
        view.setStride(static_cast<unsigned int>(2 * stride));
        if (!firstField) offset = stride;
    } else if (!firstField) {
        offset = stride * fieldHeight;
    }
    const std::uintptr_t at = dataOf(frame) + offset;
    const std::uint64_t claimed = interlaced ? holderSize(frame) : holderSize(frame) / 2;
    const auto size = static_cast<unsigned int>(std::min<std::uint64_t>(claimed, frame.holderBytesFrom(W::pointer(at))));
    view.setDataPtr(MemHolderPtr(new AttachedObject<Surface>(W::pointer(at), size, frame)));
    return view;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Splitting

bool ImageConverter::deInterleave(const Surface& src, Surface& out1, Surface& out2)
{
    const bool fits = src.getDataPtr() && out1.getDataPtr() && out2.getDataPtr() &&
                      src.getDataFormat() == out1.getDataFormat() && out1.getDataFormat() == out2.getDataFormat() &&
                      holderSize(out1) + holderSize(out2) <= holderSize(src) &&
                      src.getHeight() >= 2 * std::uint64_t(out1.getHeight()) && out1.getHeight() == out2.getHeight();
    if (!fits) {
        setOutputFieldsMetadata(src, out1, out2);
        return false;
    }
    KV_ASSERT(out1.getStride() == out2.getStride());

    // Reads the strides of all three; a line is the shorter of the two strides.
    const std::int64_t S = src.getStride();
    const std::int64_t stride1 = out1.getStride(), stride2 = out2.getStride();
    const std::size_t bytes = std::min<std::uint64_t>(out1.getStride(), src.getStride());
    const std::uint64_t lines = out1.getHeight();
    const std::int64_t last = std::int64_t(lines) - 1;
    if (src.getIsTopDown()) {
        W::copyLines(lines, {W::LineCopy{side(out1, 0, stride1), side(src, 0, 2 * S), bytes},
                             W::LineCopy{side(out2, 0, stride2), side(src, S, 2 * S), bytes}});
    } else {
        // Upright, the first line of a bottom-up buffer is the picture's last: the fields are
        // filled from their last line upward, and out1 still gets the upper line set.
        W::copyLines(lines, {W::LineCopy{side(out2, last * stride2, -stride2), side(src, 0, 2 * S), bytes},
                             W::LineCopy{side(out1, last * stride1, -stride1), side(src, S, 2 * S), bytes}});
    }
    setOutputFieldsMetadata(src, out1, out2);
    return true;
}

bool ImageConverter::deInterleaveField(const Surface& src, unsigned int whichField, Surface& out)
{
    KV_ASSERT(whichField == 0 || whichField == 1);
    const bool fits = src.getHeight() == 2 * std::uint64_t(out.getHeight());
    if (fits) {
        // Packed lines: no stride is read, nor the vertical order.
        const std::uint64_t L = packedLine(src);
        W::copyLines(out.getHeight(), {W::LineCopy{side(out, 0, std::int64_t(L)),
                                                   side(src, std::int64_t(whichField * L), std::int64_t(2 * L)),
                                                   std::size_t(L)}});
    }
    describeFrom(out, src, whichField == 0 ? FirstField : SecondField);
    return fits;
}

bool ImageConverter::frameToFields(const Surface& in, Surface& out1, Surface& out2, unsigned short outputBitDepth)
{
    const Format format = in.getDataFormat();
    const bool rgbLike = format == Format(0) || format == DIB || format == RGB;
    const unsigned short bitsPerPixel = in.getBitsPerPixel();

    if (rgbLike && bitsPerPixel == 24) {
        deinterleaveRGB8ToARGB8(in, out1, out2);
        return true;
    }
    if (rgbLike && bitsPerPixel == 48 && outputBitDepth == 8) {
        deinterleaveRGB16ToARGB8(in, out1, out2);
        return true;
    }
    if (rgbLike && bitsPerPixel == 48 && outputBitDepth == 16) {
        deinterleaveRGB16ToARGB16(in, out1, out2);
        return true;
    }
    if (format == Format(37)) {
        deinterleavePlanarRGBToARGB(in, out1, out2, outputBitDepth);
        return true;
    }
    switch (in.getPolarity()) {
    case BackToBackFieldsInAFrame:
        // The halves of the buffer are the fields already: no pixel is copied.
        out1 = wrapFieldsFromBacktoBackFrame(in, true);
        out2 = wrapFieldsFromBacktoBackFrame(in, false);
        return true;
    case InterlacedFieldsInAFrame:
    case ProgressiveFrame: {
        // A progressive frame is split by lines too.
        const auto stride = static_cast<unsigned short>(in.getStride());
        out1 = Surface(in.getWidth(), in.getHeight() >> 1, format, true, in.getBitsPerComponent(), bitsPerPixel, stride);
        out2 = Surface(in.getWidth(), in.getHeight() >> 1, format, true, in.getBitsPerComponent(), bitsPerPixel, stride);
        return deInterleave(in, out1, out2);
    }
    default:
        return true;
    }
}

// ---------------------------------------------------------------------------------------------
// Weaving

bool ImageConverter::interleave(const Surface& field1, const Surface& field2, Surface& frame, bool topDown)
{
    return weave(field1, field2, frame, topDown, false, false);
}

bool ImageConverter::DEBUG_interleave(const Surface& field1, const Surface& field2, Surface& frame, bool topDown)
{
    return weave(field1, field2, frame, topDown, true, true);
}

bool ImageConverter::fieldsToFrame(const Surface& in, Surface& out, unsigned short outputBitDepth)
{
    if (!in.getDataPtr()) return false;
    switch (in.getPolarity()) {
    case InterlacedFieldsInAFrame:
    case ProgressiveFrame:
        frameToFrame(in, out, outputBitDepth);
        return true;
    case BackToBackFieldsInAFrame: {
        Surface first, second;
        frameToFields(in, first, second, outputBitDepth);
        Surface frame;
        frame.init(first.getWidth(), 2 * first.getHeight(), first.getDataFormat(), true, first.getBitsPerComponent(),
                   first.getBitsPerPixel(), static_cast<unsigned short>(first.getStride()));
        static_cast<Video::Interface&>(frame) = static_cast<const Video::Interface&>(in);
        frame.setPolarity(ProgressiveFrame);  // the weave makes it interlaced
        frame.setColorimetry(first.getColorimetry());
        frame.setIsVideoGamutScaled(first.getIsVideoGamutScaled());
        frame.setVideoSampleDataSet(true);
        if (first.getScanMode() == SecondFieldTop)
            interleave(second, first, frame, first.getIsTopDown());
        else
            interleave(first, second, frame, first.getIsTopDown());
        out = frame;
        return true;
    }
    case FirstField:
    case SecondField:
        out = in;  // a single field is shared, not doubled
        return true;
    default:
        return true;
    }
}

// ---------------------------------------------------------------------------------------------
// Merging line sets

bool ImageConverter::mergeFrames(Surface& dst, const Surface& src)
{
    if (dst.getDataFormat() != src.getDataFormat() || dst.getHeight() != src.getHeight()) return false;
    if (dst.getHeight() < 2) return true;
    // The even packed lines of src over those of dst; no stride is read.
    const std::uint64_t L = packedLine(dst);
    W::copyLines(dst.getHeight() >> 1,
                 {W::LineCopy{side(dst, 0, std::int64_t(2 * L)), side(src, 0, std::int64_t(2 * L)), std::size_t(L)}});
    return true;
}

bool ImageConverter::mergeFieldsFromFrames(Surface& frame1, Raster raster1, const Surface& frame2, Raster raster2,
                                           const Surface& out, bool)
{
    if (frame1.getDataFormat() != frame2.getDataFormat() || !out.getDataPtr() ||
        frame1.getHeight() != frame2.getHeight())
        return false;
    if (frame1.getHeight() < 2) return true;
    // Every line by the stride of frame1, for all three pictures.
    const std::int64_t S = frame1.getStride();
    const std::int64_t second = raster2 == Upper ? 0 : S;
    const W::Side even = raster1 == Upper ? side(frame1, 0, 2 * S) : side(frame2, second, 2 * S);
    const W::Side odd = raster1 == Upper ? side(frame2, second, 2 * S) : side(frame1, S, 2 * S);
    W::copyLines(frame1.getHeight() >> 1, {W::LineCopy{side(out, 0, 2 * S), even, std::size_t(S)},
                                           W::LineCopy{side(out, S, 2 * S), odd, std::size_t(S)}});
    return true;
}

Surface ImageConverter::mergeFieldsFromFrames(Surface& src1, const Surface& src2)
{
    KV_ASSERT(src1.getStartLine() != src2.getStartLine());
    if (src1.getDataFormat() != src2.getDataFormat() || src1.getHeight() != src2.getHeight()) return Surface();
    // The view that starts on line 0 takes the other's lines in between its own, in the pixels
    // it shares with its frame. Reads the stride of src1 for both.
    const std::int64_t S = src1.getStride();
    const Surface& other = src1.getStartLine() != 0 ? static_cast<const Surface&>(src1) : src2;
    Surface result = src1.getStartLine() != 0 ? src2 : src1;
    if (src1.getHeight() >= 2)
        W::copyLines(src1.getHeight() >> 1,
                     {W::LineCopy{side(result, S, 2 * S), side(other, 0, 2 * S), std::size_t(S)}});
    return result;
}

bool ImageConverter::mergeFieldIntoFrame(Surface& field, Raster raster, Surface& frame)
{
    const bool retVal = field.getDataFormat() == frame.getDataFormat() &&
                        field.getHeight() == frame.getHeight() >> 1 && field.getDataPtr() && frame.getDataPtr();
    KV_ASSERT(retVal);
    if (!retVal) return false;
    // A frame's stride a line, from the field by its own stride into every other frame line.
    const std::int64_t S = frame.getStride();
    W::copyLines(field.getHeight(), {W::LineCopy{side(frame, raster == Upper ? 0 : S, 2 * S),
                                                 side(field, 0, field.getStride()), std::size_t(S)}});
    return true;
}

bool ImageConverter::InvertRasters(const Surface& src, Surface& dst)
{
    dst.init(src.getWidth(), src.getHeight(), src.getDataFormat(), true, src.getBitsPerComponent(),
             src.getBitsPerPixel(), static_cast<unsigned short>(src.getStride()));
    static_cast<Video::Interface&>(dst) = static_cast<const Video::Interface&>(src);
    dst.setPolarity(InterlacedFieldsInAFrame);
    dst.setColorimetry(src.getColorimetry());
    dst.setIsVideoGamutScaled(src.getIsVideoGamutScaled());
    dst.setScanMode(src.getScanMode());
    if (src.getHeight() < 2) return true;
    // Swaps the lines of each pair by the stride of src; an odd last line stays as allocated.
    const std::int64_t S = src.getStride();
    W::copyLines(src.getHeight() >> 1, {W::LineCopy{side(dst, 0, 2 * S), side(src, S, 2 * S), std::size_t(S)},
                                        W::LineCopy{side(dst, S, 2 * S), side(src, 0, 2 * S), std::size_t(S)}});
    return true;
}

// ---------------------------------------------------------------------------------------------
// Views and rearrangements

Surface ImageConverter::wrapFieldsFromBacktoBackFrame(const Surface& frame, bool firstField)
{
    return wrapField(frame, firstField, false);
}

Surface ImageConverter::wrapFieldsFromInterlacedFrame(const Surface& frame, bool firstField)
{
    return wrapField(frame, firstField, true);
}

Surface ImageConverter::createBackToBackFromInterlaced(const Surface& frame)
{
    const unsigned int height = frame.getHeight();
    Surface result(frame.getWidth(), height, frame.getDataFormat(), true, frame.getBitsPerComponent(),
                   frame.getBitsPerPixel(), static_cast<unsigned short>(frame.getStride()));
    static_cast<Core::Interface&>(result) = static_cast<const Core::Interface&>(frame);
    static_cast<BufferFormat::Interface&>(result) = static_cast<const BufferFormat::Interface&>(frame);
    static_cast<Video::Interface&>(result) = static_cast<const Video::Interface&>(frame);
    static_cast<VideoSample::Interface&>(result) = static_cast<const VideoSample::Interface&>(frame);
    // Packed lines, no stride read: the even lines to the upper half, the odd to the lower.
    const std::int64_t L = std::int64_t(packedLine(frame));
    const std::int64_t lowerHalf = std::int64_t(std::uint64_t(height) * L / 2);
    W::copyLines(height >> 1, {W::LineCopy{side(result, 0, L), side(frame, 0, 2 * L), std::size_t(L)},
                               W::LineCopy{side(result, lowerHalf, L), side(frame, L, 2 * L), std::size_t(L)}});
    return result;
}
