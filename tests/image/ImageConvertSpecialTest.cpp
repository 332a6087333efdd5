// The fixed repackings as the bytes they leave, their assertion prints, and their stops at the
// edge of a picture's memory where the walks they keep would run past it.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ole/image/ImageConvert.h"
#include "tests/image/ImageTestPictures.h"
#include "tests/support/TestSupport.h"

using namespace Kv::Image;
using namespace ImageTest;

namespace {

constexpr Format kPlanar = Format(37);

// A picture whose memory holds 0, 1, 2, ... (or 16-bit 0x0100 * k + k when words).
Surface counting(unsigned int w, unsigned int h, Format f, unsigned short bpc, unsigned short stride = 0)
{
    Surface s(w, h, f, true, bpc, 0, stride);
    s.setIsTopDown(true);
    unsigned char* p = s.getDataPtr();
    for (std::size_t i = 0; i < s.holderBytesFrom(p); ++i) p[i] = static_cast<unsigned char>(i);
    return s;
}

Bytes bytes(const Surface& s, std::size_t n)
{
    return Bytes(s.getDataPtr(), s.getDataPtr() + n);
}

std::uint32_t word32(const Surface& s, std::size_t i)
{
    std::uint32_t w;
    std::memcpy(&w, s.getDataPtr() + 4 * i, 4);
    return w;
}

std::uint64_t word64(const Surface& s, std::size_t i)
{
    std::uint64_t w;
    std::memcpy(&w, s.getDataPtr() + 8 * i, 8);
    return w;
}

void setWord16(Surface& s, std::size_t i, std::uint16_t v)
{
    std::memcpy(s.getDataPtr() + 2 * i, &v, 2);
}

bool asserted(const std::string& out, const std::string& condition)
{
    return hasAssertion(out, condition, "ImageConvertSpecial.cpp");
}

// A 10-bit source: components r, g, b in bits 20, 10, 0, and bits 30 and 31 set.
Surface tenBit(unsigned int w, unsigned int h, unsigned short stride)
{
    Surface s(w, h, RGB, true, 0, 0, stride);
    s.setBitsPerPixel(32);
    for (unsigned int y = 0; y < h; ++y)
        for (unsigned int x = 0; x < w; ++x) {
            const std::uint32_t k = y * w + x;
            const std::uint32_t word = 0xC0000000u | ((k * 37 % 1024) << 20) | ((k * 91 % 1024) << 10) | (k * 13 % 1024);
            std::memcpy(s.getDataPtr() + y * s.getStride() + 4 * x, &word, 4);
        }
    return s;
}

std::uint32_t eightBitOf(std::uint32_t w)
{
    return ((w >> 2) & 0xFF) | ((w >> 12) & 0xFF) << 8 | ((w >> 22) & 0xFF) << 16 | 0xFF000000u;
}

TEST(KV10ToKV8Threads, KeepsTheTopEightBitsAndReadsTheSourceStride)
{
    for (unsigned short stride : {28, 36}) {  // packed, and padded by two pixels
        Surface src = tenBit(7, 5, stride), dst;
        EXPECT_EQ(printed([&] { ImageConverter::KV10_to_KV8(src, dst); }), "");
        EXPECT_TRUE(dst.getDataFormat() == ARGB && dst.getWidth() == 7 && dst.getHeight() == 5);
        for (unsigned int y = 0; y < 5; ++y)
            for (unsigned int x = 0; x < 7; ++x) {
                std::uint32_t in;
                std::memcpy(&in, src.getDataPtr() + y * stride + 4 * x, 4);
                ASSERT_EQ(word32(dst, y * 7 + x), eightBitOf(in)) << x << "," << y;
            }
    }
}

TEST(KV10ToKV8Threads, OtherSourcesPrintAndStopAtTheirMemory)
{
    Surface src = tenBit(4, 3, 16), dst;
    src.setHeight(9);  // claims six lines it does not have
    src.setDataFormat(ARGB);
    const std::string out = printed([&] { ImageConverter::KV10_to_KV8(src, dst); });
    EXPECT_TRUE(asserted(out, "( src.getDataFormat() == Kv::Image::RGB ) && ( src.getBitsPerPixel() == 32 )")) << out;
    EXPECT_EQ(dst.getHeight(), 9u);
    std::uint32_t in;
    std::memcpy(&in, src.getDataPtr() + 2 * 16 + 12, 4);
    EXPECT_EQ(word32(dst, 2 * 4 + 3), eightBitOf(in));
}

TEST(ReorderComponents, SwapsEachPairAndTwiceGivesTheBytesBack)
{
    Surface uyvy = counting(3, 2, UYVY, 0);
    Surface yuy2 = ImageConverter::reorderComponents(uyvy, false);
    EXPECT_EQ(yuy2.getDataFormat(), YUY2);
    EXPECT_EQ(bytes(yuy2, 12), (Bytes{1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10}));
    EXPECT_EQ(bytes(uyvy, 4), (Bytes{0, 1, 2, 3})) << "the source is left alone";

    EXPECT_EQ(ImageConverter::reorderComponents(yuy2, true).getDataPtr(), yuy2.getDataPtr());
    EXPECT_EQ(yuy2.getDataFormat(), UYVY) << "in place, the source's format changes too";
    EXPECT_EQ(bytes(yuy2, 12), bytes(uyvy, 12));

    // Three pixels are one group of four bytes; the last two bytes stay.
    Surface odd = counting(3, 1, M101, 8);
    ImageConverter::reorderComponents(odd, true);
    EXPECT_EQ(odd.getDataFormat(), UYVY);
    EXPECT_EQ(bytes(odd, 6), (Bytes{1, 0, 3, 2, 4, 5}));

    Surface argb = counting(2, 2, ARGB, 0);
    argb.setHeight(50);  // the walk stops at the memory
    Surface result;
    const std::string out = printed([&] { result = ImageConverter::reorderComponents(argb, true); });
    EXPECT_TRUE(asserted(out, "src.getDataFormat() == UYVY")) << out;
    EXPECT_EQ(result.getDataFormat(), YUY2);
    EXPECT_EQ(bytes(argb, 16)[15], 14);
}

TEST(ReversePixelBytes, ReversesEachUnitAndStopsAtTheMemory)
{
    Surface argb = counting(2, 2, ARGB, 0);
    Surface bgra = ImageConverter::createReversedBytesImage(argb);
    EXPECT_EQ(bgra.getDataFormat(), BGRA);
    EXPECT_EQ(bytes(bgra, 8), (Bytes{3, 2, 1, 0, 7, 6, 5, 4}));
    EXPECT_EQ(ImageConverter::createReversedBytesImage(bgra).getDataFormat(), ARGB);

    // Two pixels share a unit: the walk of width * height units would cover twice the memory.
    Surface uyvy = counting(3, 2, UYVY, 0);
    std::string out = printed([&] {
        Surface yvyu = ImageConverter::createReversedBytesImage(uyvy);
        EXPECT_EQ(yvyu.getDataFormat(), YVYU);
        EXPECT_EQ(bytes(yvyu, 12), (Bytes{3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8}));
    });
    EXPECT_EQ(out, "");

    Surface rgb = counting(2, 1, RGB, 0);
    out = printed([&] { EXPECT_EQ(ImageConverter::createReversedBytesImage(rgb).getDataFormat(), BGRA); });
    EXPECT_TRUE(asserted(out, "( src.getBitsPerPixel() == 16 || src.getBitsPerPixel() == 32 ) && src.getBitsPerComponent() == 8"));
    EXPECT_TRUE(asserted(out, "src.getDataFormat() == ARGB"));
    EXPECT_TRUE(asserted(out, "( ( in.getDataFormat() == BGRA ) && ( out.getDataFormat() == ARGB ) ) || ( ( "
                             "out.getDataFormat() == BGRA ) && ( in.getDataFormat() == ARGB ) ) || ( ( "
                             "out.getDataFormat() == YVYU ) && ( in.getDataFormat() == UYVY ) )"))
        << out;

    // In place.
    Surface same = counting(2, 1, ARGB, 0);
    ImageConverter::reversePixelBytesSimpleC(same, same);
    EXPECT_EQ(bytes(same, 8), (Bytes{3, 2, 1, 0, 7, 6, 5, 4}));
}

TEST(RGBToARGB, TopDownPackedAndBottomUpFromTheLastLine)
{
    Surface rgb = counting(2, 3, RGB, 0), dst;
    EXPECT_TRUE(ImageConverter::RGBToARGB(rgb, dst, 0));
    EXPECT_TRUE(dst.getDataFormat() == ARGB && dst.getStride() == 8 && dst.getIsTopDown());
    for (std::uint32_t i = 0; i < 6; ++i) EXPECT_EQ(word32(dst, i), 0xFF000000u | (3 * i) | (3 * i + 1) << 8 | (3 * i + 2) << 16);

    rgb.setIsTopDown(false);
    EXPECT_TRUE(ImageConverter::RGBToARGB(rgb, dst, 0) && dst.getIsTopDown());
    EXPECT_EQ(word32(dst, 0), 0xFF000000u | 12 | 13 << 8 | 14 << 16) << "the last line first";
    EXPECT_EQ(word32(dst, 4), 0xFF000000u | 0 | 1 << 8 | 2 << 16);

    // A padded stride drifts the backward walk, which leaves the memory after two lines.
    Surface padded = counting(2, 3, RGB, 0, 9);
    padded.setIsTopDown(false);
    Surface out(2, 3, ARGB, true, 0, 0, 0);
    std::memset(out.getDataPtr(), 0x5A, 24);
    EXPECT_TRUE(ImageConverter::RGBToARGB(padded, out, 0));
    EXPECT_EQ(word32(out, 0), 0xFF000000u | 18 | 19 << 8 | 20 << 16);
    EXPECT_EQ(word32(out, 2), 0xFF000000u | 6 | 7 << 8 | 8 << 16);
    EXPECT_EQ(word32(out, 4), 0x5A5A5A5Au);
}

// Format 37 at 48 bits: three planes of 16-bit samples; sample i of plane k is 0xKIhl.
Surface planar16(unsigned int w, unsigned int h)
{
    Surface s(w, h, kPlanar, true, 16, 0, 0);
    s.setBitsPerPixel(48);
    s.setIsTopDown(true);
    for (unsigned int k = 0; k < 3; ++k)
        for (unsigned int i = 0; i < w * h; ++i) setWord16(s, k * w * h + i, std::uint16_t((k + 1) << 12 | i << 8 | (0x10 * k + i)));
    return s;
}

TEST(RGBPlanarToARGB, EightBitOutputIsBlueFirstAndSixteenBitRedFirst)
{
    Surface in = planar16(2, 2);
    Surface out8(2, 2, ARGB, true, 0, 0, 0), out16(2, 2, ARGB, true, 16, 0, 0);
    EXPECT_TRUE(ImageConverter::RGBPlanar16ToARGB(in, out8, 8) && out8.getIsTopDown());
    EXPECT_TRUE(ImageConverter::RGBPlanar16ToARGB(in, out16, 16));
    for (std::uint32_t i = 0; i < 4; ++i) {
        const std::uint32_t h0 = 0x10 | i, h1 = 0x20 | i, h2 = 0x30 | i;
        EXPECT_EQ(word32(out8, i), 0xFF000000u | h2 | h1 << 8 | h0 << 16);
        const std::uint64_t w0 = h0 << 8 | i, w1 = h1 << 8 | (0x10 + i), w2 = h2 << 8 | (0x20 + i);
        EXPECT_EQ(word64(out16, i), 0xFFFF000000000000ull | w0 | w1 << 16 | w2 << 32);
    }

    const std::string out = printed([&] { ImageConverter::RGBPlanar16ToARGB(in, out16, 10); });
    EXPECT_TRUE(asserted(out, "outputBitDepth == 16"));
    EXPECT_EQ(word64(out16, 0) >> 48, 0xFFFFu) << "written as 16-bit all the same";

    // 8-bit planes: width * height * 24 / 24 bytes apart.
    Surface in8(2, 2, kPlanar, true, 16, 0, 0);
    in8.setBitsPerPixel(24);
    in8.setIsTopDown(true);
    for (int i = 0; i < 12; ++i) in8.getDataPtr()[i] = static_cast<unsigned char>(i);
    EXPECT_TRUE(ImageConverter::RGBPlanar8ToARGB(in8, out8, 8));
    EXPECT_EQ(word32(out8, 1), 0xFF000000u | 9 | 5 << 8 | 1 << 16);
}

TEST(RGBPlanarToARGB, RefusalsWriteNothing)
{
    Surface in = planar16(2, 2), out(2, 2, ARGB, true, 0, 0, 0), none;
    std::memset(out.getDataPtr(), 0x5A, 16);
    CapturingLogSink log;
    EXPECT_FALSE(ImageConverter::RGBPlanar16ToARGB(in, none, 8));
    EXPECT_FALSE(ImageConverter::RGBPlanar8ToARGB(in, none, 8));
    EXPECT_EQ(log.messages(), (std::vector<std::pair<iLogSink::Channel, std::string>>{
                                  {iLogSink::Both, "RGBPlanar16ToARGB::Out of memory\n"},
                                  {iLogSink::Both, "RGBPlanar8ToARGB::Out of memory\n"}}));

    std::string prints = printed([&] { EXPECT_TRUE(ImageConverter::RGBPlanar8ToARGB(in, out, 16)); });
    in.setIsTopDown(false);
    prints += printed([&] { EXPECT_TRUE(ImageConverter::RGBPlanar16ToARGB(in, out, 8)); });
    EXPECT_EQ(prints.find("assertion failed false at"), 0u);
    EXPECT_NE(prints.find("assertion failed false at", 10), std::string::npos);

    // Descriptors that put the planes beyond the memory.
    in.setIsTopDown(true);
    in.setHeight(40);
    EXPECT_TRUE(ImageConverter::RGBPlanar16ToARGB(in, out, 8));
    EXPECT_EQ(word32(out, 3), 0x5A5A5A5Au);
}

// Lines of one byte value each: line y of a w x h RGB picture holds y * 16 + byte index.
Surface lined(unsigned int w, unsigned int h, unsigned short bpc, bool topDown, unsigned short stride = 0)
{
    Surface s(w, h, RGB, true, bpc, 0, stride);
    s.setIsTopDown(topDown);
    for (unsigned int y = 0; y < h; ++y)
        for (unsigned int i = 0; i < s.getStride(); ++i) s.getDataPtr()[y * s.getStride() + i] = static_cast<unsigned char>(y * 16 + i);
    s.setVideoFormatUID(77);
    s.setColorimetry(Colorimetry(1));
    s.setIsVideoGamutScaled(true);
    return s;
}

std::uint32_t rgb8Word(unsigned int y, unsigned int x)
{
    const std::uint32_t b = y * 16 + 3 * x;
    return 0xFF000000u | b | (b + 1) << 8 | (b + 2) << 16;
}

TEST(DeinterleaveToARGB, EvenLinesToTheFirstFieldAndTheOddLastLineDropped)
{
    Surface src = lined(2, 5, 0, true), out1, out2;
    EXPECT_TRUE(ImageConverter::deinterleaveRGB8ToARGB8(src, out1, out2));
    for (Surface* f : {&out1, &out2}) {
        EXPECT_TRUE(f->getHeight() == 2 && f->getScanMode() == FirstFieldTop && f->getIsTopDown() && f->getTransparency() == Opaque);
        EXPECT_TRUE(f->getVideoFormatUID() == 77 && f->getColorimetry() == Colorimetry(1) && f->getIsVideoGamutScaled());
    }
    EXPECT_TRUE(out1.getPolarity() == FirstField && out2.getPolarity() == SecondField);
    EXPECT_EQ(word32(out1, 1), rgb8Word(0, 1));
    EXPECT_EQ(word32(out1, 2), rgb8Word(2, 0));
    EXPECT_EQ(word32(out2, 3), rgb8Word(3, 1));

    src.setIsTopDown(false);
    EXPECT_TRUE(ImageConverter::deinterleaveRGB8ToARGB8(src, out1, out2));
    EXPECT_EQ(word32(out1, 0), rgb8Word(4, 0)) << "bottom-up: the last line first";
    EXPECT_EQ(word32(out2, 0), rgb8Word(3, 0));
    EXPECT_EQ(word32(out1, 2), rgb8Word(2, 0));
    EXPECT_EQ(word32(out2, 2), rgb8Word(1, 0));

    // The NTSC rasters count the upper lines as the second field.
    Surface ntsc = lined(1, 486, 0, true);
    EXPECT_TRUE(ImageConverter::deinterleaveRGB8ToARGB8(ntsc, out1, out2));
    EXPECT_TRUE(out1.getScanMode() == SecondFieldTop && out1.getPolarity() == SecondField && out2.getPolarity() == FirstField);

    // A padded stride is reported, and the lines are still taken a stride apart.
    Surface padded = lined(2, 4, 0, true, 8);
    const std::string out = printed([&] { ImageConverter::deinterleaveRGB8ToARGB8(padded, out1, out2); });
    EXPECT_TRUE(asserted(out, "srcStride == src.getWidth() * src.getBitsPerPixel() / 8")) << out;
    EXPECT_EQ(word32(out2, 2), rgb8Word(3, 0));
}

TEST(DeinterleaveToARGB, SixteenBitSamples)
{
    Surface src = lined(2, 2, 16, true), out1, out2;  // 48 bits, line y bytes y*16 + i
    EXPECT_TRUE(ImageConverter::deinterleaveRGB16ToARGB8(src, out1, out2));
    EXPECT_EQ(word32(out2, 1), 0xFF000000u | (16 + 7) | (16 + 9) << 8 | (16 + 11) << 16) << "high bytes";

    EXPECT_TRUE(ImageConverter::deinterleaveRGB16ToARGB16(src, out1, out2) && out1.getBitsPerPixel() == 64);
    const auto w = [](std::uint64_t b) { return b | (b + 1) << 8; };
    EXPECT_EQ(word64(out1, 0), 0xFFFF000000000000ull | w(4) | w(2) << 16 | w(0) << 32) << "w2, w1, w0, 65535";

    // Bottom-up, the backward step of four strides skips lines and leaves the picture after
    // lines 7, 4 and 1.
    Surface tall = lined(1, 8, 16, false);
    EXPECT_TRUE(ImageConverter::deinterleaveRGB16ToARGB16(tall, out1, out2));
    EXPECT_EQ(word64(out1, 0) & 0xFFFF, w(7 * 16 + 4));
    EXPECT_EQ(word64(out2, 0) & 0xFFFF, w(4 * 16 + 4));
    EXPECT_EQ(word64(out1, 1) & 0xFFFF, w(1 * 16 + 4));
}

TEST(DeinterleaveToARGB, PlanarDealsByAFallingCounter)
{
    Surface even = planar16(1, 4), out1, out2;
    EXPECT_TRUE(ImageConverter::deinterleavePlanarRGBToARGB(even, out1, out2, 8));
    const auto argb8 = [](std::uint32_t i) { return 0xFF000000u | (0x30 | i) | (0x20 | i) << 8 | (0x10 | i) << 16; };
    EXPECT_EQ(word32(out2, 0), argb8(0)) << "at an even height the first line goes to out2";
    EXPECT_EQ(word32(out1, 0), argb8(1));
    EXPECT_EQ(word32(out2, 1), argb8(2));
    EXPECT_EQ(word32(out1, 1), argb8(3));

    // At an odd height out1 is dealt three lines and holds two.
    Surface odd = planar16(1, 5);
    EXPECT_TRUE(ImageConverter::deinterleavePlanarRGBToARGB(odd, out1, out2, 16) && out1.getHeight() == 2);
    EXPECT_EQ(word64(out1, 0) & 0xFFFF, (0x1u << 12 | 0 << 8 | 0));
    EXPECT_EQ(word64(out2, 0) & 0xFFFF, (0x1u << 12 | 1 << 8 | 1));
    EXPECT_EQ(word64(out1, 1) & 0xFFFF, (0x1u << 12 | 2 << 8 | 2));

    odd.setIsTopDown(false);
    const std::string out = printed([&] { EXPECT_TRUE(ImageConverter::deinterleavePlanarRGBToARGB(odd, out1, out2, 12)); });
    EXPECT_EQ(out.find("assertion failed false at"), 0u) << out;
    EXPECT_EQ(out.find("outputBitDepth"), std::string::npos);
    EXPECT_TRUE(out1.getHeight() == 2 && out1.getPolarity() == FirstField);
}

}  // namespace
