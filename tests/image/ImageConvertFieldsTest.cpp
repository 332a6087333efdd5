// Fields and frames: split then weave round trips, field views and their frames, merges into
// shared pixels, and descriptors that claim more lines than the memory holds.

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "ole/image/ImageConvert.h"
#include "tests/image/ImageTestPictures.h"

using namespace Kv::Image;
using namespace ImageTest;

namespace {

// Whether `f` prints the assertion of `condition`.
bool asserts(const std::function<void()>& f, const std::string& condition)
{
    return hasAssertion(printed(f), condition, "ImageConvertFields.cpp");
}

Surface half(const Surface& frame) { return Surface(frame.getWidth(), frame.getHeight() >> 1, ARGB, true, 0, 0, 0); }

}  // namespace

TEST(ImageConvertFields, SplitThenWeaveRoundTrips)
{
    for (unsigned int height : {6u, 7u})
        for (bool topDown : {true, false})
            for (bool swapped : {false, true}) {
                SCOPED_TRACE(testing::Message() << height << " top-down " << topDown << " swapped " << swapped);
                const Surface frame = numbered(3, height, topDown);
                Surface out1 = half(frame), out2 = half(frame), woven, inverted;
                ASSERT_TRUE(ImageConverter::deInterleave(frame, out1, out2));
                EXPECT_TRUE(out1.getIsTopDown());
                // out1 holds the upper lines of the upright picture, wherever they lie.
                EXPECT_EQ(line(out1, 0), line(frame, topDown ? 0 : 2 * (height >> 1) - 1));
                EXPECT_TRUE(swapped ? ImageConverter::interleave(out2, out1, woven, topDown)
                                    : ImageConverter::interleave(out1, out2, woven, topDown));
                ASSERT_EQ(woven.getHeight(), 2 * (height >> 1));
                EXPECT_EQ(woven.getIsTopDown(), topDown);
                EXPECT_EQ(woven.getPolarity(), InterlacedFieldsInAFrame);
                ImageConverter::InvertRasters(frame, inverted);
                for (unsigned int y = 0; y < woven.getHeight(); ++y)
                    EXPECT_EQ(line(woven, y), line(swapped ? inverted : frame, y)) << y;
            }
}

TEST(ImageConvertFields, SplittingRulesAndRefusals)
{
    for (unsigned int height : {486u, 576u}) {
        const Surface frame = numbered(1, height);
        Surface out1 = half(frame), out2 = half(frame);
        EXPECT_TRUE(ImageConverter::deInterleave(frame, out1, out2));
        EXPECT_EQ(out1.getPolarity(), height == 486 ? SecondField : FirstField);
    }
    // Outputs holding more than the source: false, and the metadata all the same.
    const Surface frame = numbered(2, 4, false);
    Surface big1 = numbered(2, 2, false, 5), big2(2, 3, ARGB, true, 0, 0, 0), narrow(2, 2, ARGB, true, 0, 0, 4);
    big2.setHeight(2);
    EXPECT_FALSE(ImageConverter::deInterleave(frame, big1, big2));
    EXPECT_EQ(line(big1, 0), line(numbered(2, 2, false, 5), 0));
    EXPECT_TRUE(big1.getPolarity() == FirstField && big1.getIsTopDown());
    Surface out1 = half(frame);
    EXPECT_TRUE(asserts([&] { ImageConverter::deInterleave(frame, out1, narrow); }, "out1.getStride() == out2.getStride()"));

    // One line set at a time, packed; the metadata even when the heights do not fit.
    Surface one = half(frame), wrong(2, 3, ARGB, true, 0, 0, 0);
    EXPECT_TRUE(ImageConverter::deInterleaveField(frame, 1, one));
    EXPECT_TRUE(line(one, 1) == line(frame, 3) && one.getPolarity() == SecondField);
    bool fitted = true;
    EXPECT_TRUE(asserts([&] { fitted = ImageConverter::deInterleaveField(frame, 2, wrong); }, "whichField == 0 || whichField == 1"));
    EXPECT_TRUE(!fitted && wrong.getVideoSampleDataSet());

    // frameToFields: a lone field is left alone; 24-bit RGB becomes 8-bit ARGB fields whatever
    // its polarity; a back-to-back frame gives views on its halves.
    Surface uyvy(4, 2, UYVY, true, 0, 0, 0), rgb(2, 4, RGB, true, 0, 0, 0), o1, o2;
    uyvy.setPolarity(FirstField);
    EXPECT_TRUE(ImageConverter::frameToFields(uyvy, o1, o2, 8));
    EXPECT_FALSE(o1.valid());
    std::memset(rgb.getDataPtr(), 7, rgb.getImageSize());
    EXPECT_TRUE(ImageConverter::frameToFields(rgb, o1, o2, 8));
    EXPECT_TRUE(o1.getDataFormat() == ARGB && o2.getHeight() == 2);
    Surface b2b = numbered(2, 4);
    b2b.setPolarity(BackToBackFieldsInAFrame);
    EXPECT_TRUE(ImageConverter::frameToFields(b2b, o1, o2, 8));
    EXPECT_TRUE(o1.getDataPtr() == b2b.getDataPtr() && o2.getDataPtr() == b2b.getDataPtr() + 16);
}

TEST(ImageConvertFields, WeavingRulesAndRefusals)
{
    const Surface f1 = numbered(2, 2, true, 1), f2 = numbered(2, 2, true, 5);
    // Field lines wider than the frame's: the frame's stride a line is copied.
    Surface wide1(1, 2, ARGB, true, 0, 0, 8), wide2(1, 2, ARGB, true, 0, 0, 8), narrow(1, 4, ARGB, true, 0, 0, 0);
    std::memcpy(wide1.getDataPtr(), f1.getDataPtr(), 16);
    std::memcpy(wide2.getDataPtr(), f2.getDataPtr(), 16);
    EXPECT_TRUE(ImageConverter::interleave(wide1, wide2, narrow, true));
    EXPECT_EQ(line(narrow, 1), Bytes(f2.getDataPtr(), f2.getDataPtr() + 4));
    // Narrower: false without a word, and the metadata set.
    Surface frame(2, 4, ARGB, true, 0, 0, 16), yuv(2, 2, UYVY, true, 0, 0, 0), tall(2, 5, ARGB, true, 0, 0, 0);
    bool ok = true;
    EXPECT_EQ(printed([&] { ok = ImageConverter::interleave(f1, f2, frame, true); }), "");
    EXPECT_TRUE(!ok && frame.getPolarity() == InterlacedFieldsInAFrame);
    EXPECT_TRUE(asserts([&] { ImageConverter::interleave(f1, yuv, tall, true); }, "false"));
    EXPECT_TRUE(asserts([&] { ImageConverter::interleave(f1, f2, tall, true); }, "false"));
    // The diagnostic weave: silent, with the first field one line late.
    Surface late;
    EXPECT_EQ(printed([&] { ok = ImageConverter::DEBUG_interleave(f1, f2, late, true); }), "");
    EXPECT_TRUE(ok && line(late, 2) == line(f1, 0) && line(late, 3) == line(f2, 1));

    // fieldsToFrame: a back-to-back frame woven in the order of its scan mode; a single field
    // shared; nothing from nothing.
    Surface b2b = numbered(2, 4), out, none;
    b2b.setPolarity(BackToBackFieldsInAFrame);
    for (ScanMode mode : {FirstFieldTop, SecondFieldTop}) {
        b2b.setScanMode(mode);
        Surface woven;
        EXPECT_TRUE(ImageConverter::fieldsToFrame(b2b, woven, 8));
        EXPECT_EQ(woven.getPolarity(), InterlacedFieldsInAFrame);
        const bool swap = mode == SecondFieldTop;
        EXPECT_TRUE(line(woven, 0) == line(b2b, swap ? 2 : 0) && line(woven, 3) == line(b2b, swap ? 1 : 3));
    }
    Surface single = numbered(2, 2);
    single.setPolarity(FirstField);
    EXPECT_TRUE(ImageConverter::fieldsToFrame(single, out, 8));
    EXPECT_EQ(out.rep(), single.rep());
    EXPECT_FALSE(ImageConverter::fieldsToFrame(none, out, 8));
}

TEST(ImageConvertFields, ViewsKeepTheirFrameAlive)
{
    Surface b2b, first, second;
    const unsigned char* pixels = nullptr;
    {
        const Surface frame = numbered(2, 6);
        pixels = frame.getDataPtr();
        b2b = ImageConverter::wrapFieldsFromBacktoBackFrame(frame, false);
        first = ImageConverter::wrapFieldsFromInterlacedFrame(frame, true);
        second = ImageConverter::wrapFieldsFromInterlacedFrame(frame, false);
    }
    // The frame's handle is gone; the sanitizer would see any read of freed pixels here.
    EXPECT_TRUE(b2b.getDataPtr() == pixels + 24 && b2b.getStride() == 8 && b2b.getHeight() == 3);
    EXPECT_TRUE(b2b.getPolarity() == SecondField && b2b.getMemHolder()->getSize() == 24);
    EXPECT_EQ(line(b2b, 2), line(numbered(2, 6), 5));
    EXPECT_TRUE(first.getStride() == 16 && first.getPolarity() == FirstField);
    EXPECT_EQ(second.getDataPtr(), pixels + 8);
    EXPECT_EQ(line(second, 2), line(numbered(2, 6), 5));
    EXPECT_LE(second.getMemHolder()->getSize(), 40u) << "no more than the frame holds from there";
}

TEST(ImageConvertFields, MergesWriteIntoSharedPixels)
{
    // mergeFrames: the even lines of src; an odd last line is no pair's; height 1 does nothing.
    Surface dst = numbered(2, 5), src = numbered(2, 5, true, 8), one = numbered(2, 1), other = numbered(2, 1, true, 3);
    EXPECT_TRUE(ImageConverter::mergeFrames(dst, src));
    EXPECT_TRUE(line(dst, 2) == line(src, 2) && line(dst, 3) == line(numbered(2, 5), 3) && line(dst, 4) == line(numbered(2, 5), 4));
    EXPECT_TRUE(ImageConverter::mergeFrames(one, other));
    EXPECT_EQ(line(one, 0), line(numbered(2, 1), 0));

    // One line set of each frame, by raster.
    Surface a = numbered(2, 4), b = numbered(2, 4, true, 8), out(2, 4, ARGB, true, 0, 0, 0);
    EXPECT_TRUE(ImageConverter::mergeFieldsFromFrames(a, Upper, b, Lower, out, false));
    EXPECT_TRUE(line(out, 2) == line(a, 2) && line(out, 3) == line(b, 3));
    EXPECT_TRUE(ImageConverter::mergeFieldsFromFrames(a, Lower, b, Upper, out, false));
    EXPECT_TRUE(line(out, 2) == line(b, 2) && line(out, 3) == line(a, 3));

    // Two start-line views: the one on line 0 takes the other's lines, in its frame's pixels.
    Surface frame = numbered(2, 4), source = numbered(2, 4, true, 8);
    Surface top(2, 4, ARGB, false, 0, 0, 0), shifted(2, 4, ARGB, false, 0, 0, 0);
    top.setDataPtr(frame.getMemHolder());
    shifted.setDataPtr(source.getMemHolder());
    shifted.setStartLine(1);
    const Surface merged = ImageConverter::mergeFieldsFromFrames(top, shifted);
    EXPECT_EQ(merged.rep(), top.rep());
    EXPECT_TRUE(line(frame, 1) == line(source, 1) && line(frame, 3) == line(source, 3));
    EXPECT_EQ(line(frame, 2), line(numbered(2, 4), 2));
    EXPECT_TRUE(asserts([&] { EXPECT_FALSE(ImageConverter::mergeFieldsFromFrames(top, one).valid()); },
                        "src1.getStartLine() != src2.getStartLine()"));

    // A field into the lower lines of a frame of odd height; a misfit asserts.
    Surface odd = numbered(2, 5), lower = numbered(2, 2, true, 9);
    EXPECT_TRUE(ImageConverter::mergeFieldIntoFrame(lower, Lower, odd));
    EXPECT_TRUE(line(odd, 3) == line(lower, 1) && line(odd, 4) == line(numbered(2, 5), 4));
    EXPECT_TRUE(asserts([&] { ImageConverter::mergeFieldIntoFrame(odd, Upper, lower); }, "retVal"));

    // InvertRasters leaves an odd last line as it found it; the back-to-back copy keeps polarity.
    Surface inverted = numbered(2, 5, true, 12), interlaced = numbered(2, 4);
    EXPECT_TRUE(ImageConverter::InvertRasters(numbered(2, 5), inverted));
    EXPECT_TRUE(line(inverted, 0) == line(numbered(2, 5), 1) && line(inverted, 4) == line(numbered(2, 5, true, 12), 4));
    interlaced.setPolarity(InterlacedFieldsInAFrame);
    const Surface halves = ImageConverter::createBackToBackFromInterlaced(interlaced);
    EXPECT_EQ(halves.getPolarity(), InterlacedFieldsInAFrame);
    EXPECT_TRUE(line(halves, 1) == line(interlaced, 2) && line(halves, 2) == line(interlaced, 1));
}

TEST(ImageConvertFields, ClaimsOfBillionsOfLinesStopAtTheMemory)
{
    const auto start = std::chrono::steady_clock::now();
    Surface small = numbered(2, 4), f1 = numbered(2, 2), f2 = numbered(2, 2), frame = numbered(2, 4);
    Surface out1 = numbered(2, 1), out2 = numbered(2, 1), wrapping = numbered(2, 1);
    small.setHeight(0x7FFFFFFF);
    f1.setHeight(0x7FFFFFFE);
    f2.setHeight(0x7FFFFFFE);
    frame.setHeight(0xFFFFFFFC);
    out1.setHeight(0x3FFFFFFF);
    out2.setHeight(0x3FFFFFFF);
    wrapping.setHeight(0x20000001);  // its image size wraps to 8 bytes in 32 bits
    printed([&] {
        ImageConverter::deInterleave(small, out1, out2);
        ImageConverter::interleave(f1, f2, frame, false);
        ImageConverter::DEBUG_interleave(f1, f2, frame, true);
        ImageConverter::mergeFrames(f1, f2);
        ImageConverter::mergeFieldIntoFrame(out1, Upper, small);
        Surface inverted;
        ImageConverter::InvertRasters(wrapping, inverted);
        ImageConverter::createBackToBackFromInterlaced(wrapping);
    });
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}
