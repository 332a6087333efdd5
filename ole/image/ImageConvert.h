#pragma once
// ImageConverter: a class of static functions that turn a picture held in one pixel layout
// into another, split and weave the fields of interlaced video, change sizes, and do the
// fixed repackings. What it cannot do itself it offers to iImageConvert plug-ins.
//
// Most pixel loops here walk memory as packed lines and do not read the stride; those that
// read it say so. A true result does not always mean that the destination was written: the
// functions that answer true without writing say so.
//
// The functions live in one source file a concern: ImageConvert.cpp (convert, reorder,
// frameToFrame), ImageConvertFields.cpp (fields and frames), ImageConvertResize.cpp (sizes),
// ImageConvertSpecial.cpp (the fixed repackings).

#include <utility>

#include "ole/Kv/KvPtr.h"
#include "ole/Kv/KvRectangle.h"
#include "ole/image/KvSurface.h"
#include "ole/image/TopDownRect.h"
#include "ole/misc/XY.h"
#include "ole/platform/media/KvHostImage.h"

class KV_EXPORT ImageConverter {
public:
    ImageConverter() = delete;

    using Surface = Kv::Image::Surface;
    using Base = Kv::Image::Base;

    // --- Format conversion -------------------------------------------------------------------
    // Any conversion, resizing when the sizes differ.
    static bool convert(const Surface& src, Surface& dst);
    // Same-size repacking without plug-ins.
    static bool reorder(const Base& src, Base& dst);
    // A displayable frame in `out` from any frame `in`, with the video metadata.
    static bool frameToFrame(const Surface& in, Surface& out, unsigned short outputBitDepth);

    // --- Fields and frames -------------------------------------------------------------------
    static bool frameToFields(const Surface& in, Surface& out1, Surface& out2, unsigned short outputBitDepth);
    static bool fieldsToFrame(const Surface& in, Surface& out, unsigned short outputBitDepth);
    static bool deInterleave(const Surface& src, Surface& out1, Surface& out2);
    static bool deInterleaveField(const Surface& src, unsigned int whichField, Surface& out);
    static bool interleave(const Surface& field1, const Surface& field2, Surface& frame, bool topDown);
    static bool DEBUG_interleave(const Surface& field1, const Surface& field2, Surface& frame, bool topDown);
    static bool mergeFrames(Surface& dst, const Surface& src);
    static bool mergeFieldsFromFrames(Surface& frame1, Kv::Image::Raster raster1, const Surface& frame2,
                                      Kv::Image::Raster raster2, const Surface& out, bool unused);
    static Surface mergeFieldsFromFrames(Surface& src1, const Surface& src2);
    static bool mergeFieldIntoFrame(Surface& field, Kv::Image::Raster raster, Surface& frame);
    static bool InvertRasters(const Surface& src, Surface& dst);
    static Surface wrapFieldsFromBacktoBackFrame(const Surface& frame, bool firstField);
    static Surface wrapFieldsFromInterlacedFrame(const Surface& frame, bool firstField);
    static Surface createBackToBackFromInterlaced(const Surface& frame);

    // --- Sizes -------------------------------------------------------------------------------
    static bool resize(const Surface& src, Surface& dst);
    static bool canPerformPixelSkipResize(unsigned int srcWidth, unsigned int srcHeight,
                                          unsigned int dstWidth, unsigned int dstHeight);
    static bool pixelSkipResize(const Base& src, Base& dst);
    static void aspectPreservingResize(const Surface& src, Surface& dest);
    static bool resize(const std::pair<const Surface*, TopDownRect>& src, Surface& dst);
    static Kv::Ptr<iHostImage> resize(Kv::Ptr<iHostImage> src, const XY<int>& size, Kv::Rectangle<int> rect);
    static Kv::Ptr<iHostImage> aspectPreservingResize(Kv::Ptr<iHostImage> src, const XY<int>& size);
    static Kv::Ptr<iHostImage> makeGreyscaleImage(Kv::Ptr<iHostImage> src);

    // --- Fixed repackings --------------------------------------------------------------------
    static void KV10_to_KV8(const Surface& src, Surface& dst);
    static Surface reorderComponents(Surface& src, bool inPlace);
    static void reversePixelBytes(const Base& in, Base& out);
    static void reversePixelBytesSimpleC(const Base& in, Base& out);
    static Surface createReversedBytesImage(const Base& src);
    static bool RGBToARGB(const Surface& src, Surface& dst, unsigned short unused);
    static bool RGBPlanar16ToARGB(const Base& in, Base& out, unsigned short outputBitDepth);
    static bool RGBPlanar8ToARGB(const Base& in, Base& out, unsigned short outputBitDepth);
    static bool deinterleaveRGB8ToARGB8(const Surface& src, Surface& out1, Surface& out2);
    static bool deinterleaveRGB16ToARGB8(const Surface& src, Surface& out1, Surface& out2);
    static bool deinterleaveRGB16ToARGB16(const Surface& src, Surface& out1, Surface& out2);
    static bool deinterleavePlanarRGBToARGB(const Surface& src, Surface& out1, Surface& out2,
                                            unsigned short outputBitDepth);
    // A diagnostic, run by the command "Templated Pixels Test".
    static void templatedPixelsTest();
};

// The line function of KV10_to_KV8 on the pixel iterator's worker threads.
KV_EXPORT int KV10_to_KV8_lp(int param, int x, int y, int width, unsigned char* src, unsigned char* dst);

// Same-size repackings of 24- and 48-bit RGB lines into ARGB; S and D are the sample types of
// source and destination.
template <class S, class D>
void reorderBGRtoARGB(const Kv::Image::Base& src, Kv::Image::Base& dst);
template <class S, class D>
void reorderRGBtoARGB(const Kv::Image::Base& src, Kv::Image::Base& dst);
