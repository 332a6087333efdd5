#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "ole/image/KvSurface.h"
#include "tests/image/ImageTestPictures.h"
#include "tests/support/CountingMemory.h"

using namespace Kv::Image;
using ImageTest::printed;

TEST(KvSurface, EmptyAndSizedPictures)
{
    Surface empty;
    EXPECT_TRUE(!empty.valid() && !empty.getDataPtr() && !empty.getCoreDataSet());
    EXPECT_TRUE(empty.getDataFormat() == InvalidFormat && empty.getBitsPerPixel() == 4) << "the empty rep's values";

    Surface argb(4, 2, ARGB, true, 0, 0, 0), uyvy(720, 576, UYVY, true, 10, 0, 0), described(4, 2, ARGB, false, 0, 0, 0);
    EXPECT_TRUE(argb.getStride() == 16 && argb.getMemHolder()->getSize() == 32 && argb.getCoreDataSet());
    EXPECT_EQ(argb.rep()->transparency, Unknown) << "to be scanned";
    EXPECT_TRUE(uyvy.getBitsPerPixel() == 20 && uyvy.getStride() == 1800 && uyvy.rep()->transparency == Opaque);
    EXPECT_TRUE(!described.valid() && described.getStride() == 16);

    // The bits-per-pixel argument is a switch: the stride may raise the table's value, by its
    // bytes a pixel shifted down by three.
    EXPECT_EQ(Surface(10, 1, RGB, true, 0, 1, 400).getBitsPerPixel(), 24);
    EXPECT_EQ(Surface(1, 1, RGB, true, 0, 1, 256).getBitsPerPixel(), 32);
    EXPECT_FALSE(Surface(8, 0, ARGB, true, 0, 0, 0).valid()) << "a picture of no lines gets no holder";
}

TEST(KvSurface, InitKeepsALargeEnoughHolder)
{
    Surface s(25, 10, ARGB, true, 0, 0, 0);  // 1000 bytes
    const iMemHolder* holder = s.getMemHolder().get();
    std::memset(s.getDataPtr(), 0x5A, 1000);
    const int handle = s.rep()->imageHandle;
    s.init(25, 5, ARGB, true, 0, 0, 0);  // 500 bytes fit
    EXPECT_TRUE(s.getMemHolder().get() == holder && s.getMemHolder()->getSize() == 1000);
    EXPECT_EQ(s.getDataPtr()[999], 0x5A);  // contents kept
    EXPECT_NE(s.rep()->imageHandle, handle);
    s.init(25, 11, ARGB, true, 0, 0, 0);  // 1100 bytes do not
    EXPECT_TRUE(s.getMemHolder().get() != holder && s.getMemHolder()->getSize() == 1100);
    s.init(4000, 4000, ARGB, false, 0, 0, 0);  // no allocation: the holder stays as it is
    EXPECT_EQ(s.getMemHolder()->getSize(), 1100u);
}

TEST(KvSurface, HandlesShareOneRep)
{
    Surface a(4, 4, ARGB, true, 0, 0, 0);
    Surface b(a);
    a.setWidth(3);
    EXPECT_TRUE(b.getWidth() == 3 && b.getStride() == 16) << "the stride stays as it was";
    EXPECT_EQ(a.rep()->refCount_, 2);
    a.free();
    EXPECT_TRUE(!a.valid() && b.valid());
    EXPECT_EQ(b.rep()->refCount_, 1);
    b = b;  // self-assignment
    EXPECT_EQ(b.rep()->refCount_, 1);
    a = b;
    EXPECT_EQ(a.getDataPtr(), b.getDataPtr());
}

TEST(KvSurface, CopiesOnManyThreadsKeepOneCount)
{
    CountingMemory memory;
    {
        Surface shared(64, 64, ARGB, true, 0, 0, 0);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([shared] {
                for (int i = 0; i < 10000; ++i) {
                    Surface copy(shared);
                    Surface other;
                    other = copy;
                }
            });
        for (auto& t : threads) t.join();
        EXPECT_EQ(shared.rep()->refCount_, 1);
    }
    EXPECT_EQ(memory.outstanding(), 0);
}

TEST(KvSurface, StartLineMovesTheFirstLineOnly)
{
    Surface s(25, 10, ARGB, true, 0, 0, 100);
    s.setStartLine(2);
    EXPECT_EQ(s.getDataPtr() - s.getRawDataPtr(), 200);
    EXPECT_EQ(s.getRawLinePtr(2) - s.getRawDataPtr(), 200);
    EXPECT_EQ(s.getRawLinePtr(0), s.getRawDataPtr());
    // validPixelPtr counts its upper limit from the first line, past the holder's end.
    EXPECT_TRUE(s.validPixelPtr(s.getRawDataPtr() + 1100));
    EXPECT_FALSE(s.validPixelPtr(s.getRawDataPtr() + 1200));
    EXPECT_FALSE(s.validPixelPtr(s.getRawDataPtr() + 100));
}

TEST(KvSurface, BufRefSharesOneSizeField)
{
    unsigned char bytes[100];
    BufRef ref(bytes, 100);
    EXPECT_FALSE(ref.setUsed(101));
    EXPECT_EQ(ref.getSize(), 100u);
    EXPECT_TRUE(ref.setUsed(60));
    EXPECT_TRUE(ref.getSize() == 60 && ref.getUsed() == 60);
}

TEST(KvSurface, TransparencyIsScannedOnceAndCached)
{
    Surface zero(0, 0, ARGB, true, 0, 0, 0);
    EXPECT_EQ(zero.getTransparency(), Unknown);
    Surface s(33, 3, ARGB, true, 0, 0, 0);
    FastMemSet(s.getDataPtr(), 0xFF000000u, s.getImageSize());
    Surface t(s);
    s.getDataPtr()[4 * 97 + 3] = 0xFE;  // one alpha byte anywhere
    EXPECT_EQ(s.getTransparency(), HasTransparency);
    s.getDataPtr()[4 * 97 + 3] = 0xFF;
    EXPECT_EQ(t.getTransparency(), HasTransparency);  // cached on the shared rep
    Surface opaque(3, 3, ARGB, true, 0, 0, 0);
    FastMemSet(opaque.getDataPtr(), 0xFF102030u, opaque.getImageSize());
    EXPECT_EQ(opaque.getTransparency(), Opaque);
    // Descriptors that claim more than the holder: the scan stops at its end.
    opaque.setHeight(1000);
    opaque.rep()->transparency = Unknown;
    EXPECT_EQ(opaque.getTransparency(), Opaque);

    const std::string out = printed([] {
        Surface rgb(2, 2, RGB, true, 0, 0, 0);
        rgb.setTransparency(HasTransparency);
        EXPECT_EQ(rgb.getTransparency(), HasTransparency);
    });
    EXPECT_NE(out.find("assertion failed transparency != HasTransparency || hasAlphaChannel( "
                       "getDataFormat() ) at ole/image/KvSurface.cpp:"),
              std::string::npos)
        << out;
}

TEST(KvSurface, CopyBlitIsADeepCopy)
{
    Surface src(3, 2, ARGB, true, 0, 0, 0);
    for (unsigned int i = 0; i < src.getImageSize(); ++i) src.getDataPtr()[i] = static_cast<unsigned char>(i);
    src.setIsTopDown(true);
    src.setColorimetry(C709);
    src.setVideoSampleDataSet(true);
    src.setScanMode(FirstFieldTop);
    Surface dst;
    Surface other(dst);
    EXPECT_TRUE(dst.CopyBlit(src));
    EXPECT_NE(dst.getDataPtr(), src.getDataPtr());
    EXPECT_EQ(std::memcmp(dst.getDataPtr(), src.getDataPtr(), 24), 0);
    EXPECT_TRUE(dst.getColorimetry() == C709 && dst.getVideoSampleDataSet() && dst.getScanMode() == FirstFieldTop);
    EXPECT_FALSE(dst.getIsTopDown());  // not carried across
    EXPECT_FALSE(other.valid());       // the old rep stays with its other handle
    EXPECT_EQ(dst.getMemHolder()->getUsed(), 24u);
}

TEST(KvSurface, CreateBlackFlipAndFill)
{
    Surface s;
    s.createBlack(false);
    ASSERT_TRUE(s.valid() && s.getWidth() == 2 && s.getDataFormat() == ARGB);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(s.getDataPtr()[i], (i % 4 == 3) ? 0xFF : 0x00) << i;

    Surface three(1, 3, ARGB, true, 0, 0, 0);
    unsigned char* p = three.getDataPtr();
    for (int line = 0; line < 3; ++line) std::memset(p + line * 4, 'a' + line, 4);
    three.flip();
    EXPECT_EQ(std::string(p, p + 12), "ccccbbbbaaaa");
    EXPECT_TRUE(three.getIsTopDown());
    char lines[] = "xxxxyyyyzzzz";
    three.fillWithData(reinterpret_cast<unsigned char*>(lines), false);
    EXPECT_EQ(std::string(p, p + 12), lines);
    three.fillWithData(reinterpret_cast<unsigned char*>(lines), true);
    EXPECT_EQ(std::string(p, p + 12), "zzzzyyyyxxxx");
    Surface one(2, 1, ARGB, true, 0, 0, 0);
    one.flip();
    EXPECT_TRUE(one.getIsTopDown());

    // More lines claimed than the holder has: only whole lines inside it are swapped.
    Surface tall(1, 2, ARGB, true, 0, 0, 0);
    tall.setHeight(1000);
    tall.flip();
    EXPECT_TRUE(tall.getIsTopDown());
}

TEST(KvSurface, BlitToChecksAndClips)
{
    Surface src(4, 4, ARGB, true, 0, 0, 0);
    for (unsigned int i = 0; i < 64; ++i) src.getDataPtr()[i] = static_cast<unsigned char>(i);
    Surface dst(3, 3, ARGB, true, 0, 0, 0);
    std::memset(dst.getDataPtr(), 0, 36);
    const std::string out = printed([&] { EXPECT_FALSE(src.blitTo(dst, 0, 0, 3, 1, 2, 0)); });
    EXPECT_NE(out.find("assertion failed false at ole/image/KvSurface.cpp:"), std::string::npos);
    EXPECT_EQ(dst.getDataPtr()[0], 0);
    // A destination that is merely too small clips.
    EXPECT_TRUE(src.blitTo(dst, 1, 1, 0xFFFFFFFFu, 0xFFFFFFFFu, 0, 0));
    EXPECT_EQ(dst.getDataPtr()[16], 0);   // (1, 1) gets source (0, 0)
    EXPECT_EQ(dst.getDataPtr()[20], 4);   // (2, 1) gets source (1, 0)
    EXPECT_EQ(dst.getDataPtr()[32], 20);  // (2, 2) gets source (1, 1)
    Surface rgb(4, 4, RGB, true, 0, 0, 0);
    printed([&] { EXPECT_FALSE(src.blitTo(rgb, 0, 0, 1, 1, 0, 0)); });
}

TEST(KvSurface, PixelAccessorsKeepTheirQuirks)
{
    Surface s(2, 2, ARGB, true, 0, 0, 0);
    std::memset(s.getDataPtr(), 0, 16);
    // setRGBPixel writes r, g, b in that order, which getRGBPixel reads as b, g, r; the RGBA pair
    // agree with each other, blue first in memory.
    s.setRGBPixel(0, 0, 1, 2, 3);
    EXPECT_EQ(std::memcmp(s.getDataPtr(), "\x01\x02\x03", 3), 0);
    unsigned char r = 0, g = 0, b = 0, a = 0;
    s.getRGBPixel(0, 0, r, g, b);
    EXPECT_EQ((std::vector<int>{r, g, b}), (std::vector<int>{3, 2, 1}));
    s.setRGBAPixel(1, 1, 1, 2, 3, 4);
    EXPECT_EQ(std::memcmp(s.getDataPtr() + 12, "\x03\x02\x01\x04", 4), 0);
    s.getRGBAPixel(1, 1, r, g, b, a);
    EXPECT_EQ((std::vector<int>{r, g, b, a}), (std::vector<int>{1, 2, 3, 4}));
    s.setRGBPixel(5, 5, 9, 9, 9);  // out of bounds: nothing
    s.setRGBAPixel(0, 7, 9, 9, 9, 9);

    // A 24-bit picture reads the next pixel's first byte as alpha, and none after the last.
    Surface rgb(2, 1, RGB, true, 0, 0, 0);
    const unsigned char px[6] = {10, 20, 30, 40, 50, 60};
    std::memcpy(rgb.getDataPtr(), px, 6);
    a = 0;
    rgb.getRGBAPixel(0, 0, r, g, b, a);
    EXPECT_EQ(a, 40);
    a = 77;
    rgb.getRGBAPixel(1, 0, r, g, b, a);
    EXPECT_TRUE(r == 60 && a == 77);

    Surface yuv(2, 2, UYVY, true, 0, 0, 0);
    r = g = b = 7;
    EXPECT_NE(printed([&] { yuv.getRGBPixel(0, 0, r, g, b); }).find("assertion failed false"), std::string::npos);
    EXPECT_EQ(r, 7);
    char y = 5, u = 6, v = 7;
    yuv.getYUVPixel(0, 0, y, u, v);
    EXPECT_EQ(y, 5);
    EXPECT_NE(printed([&] { yuv.setYUVPixel(0, 0, 1, 2, 3); }).find("assertion failed false"),
              std::string::npos);
}

TEST(KvSurface, WrappedProductsStayInsideTheHolder)
{
    // width * 32 wraps in 32 bits: the stride comes out as 4 and the holder as 4 bytes, while
    // the descriptors claim a billion pixels. Every pixel loop must keep to the 4 bytes.
    Surface s(0x40000001u, 2, ARGB, true, 0, 0, 0);
    ASSERT_EQ(s.getStride(), 4u);
    ASSERT_EQ(s.getMemHolder()->getSize(), 8u);
    s.createBlack(false);
    EXPECT_EQ(s.getTransparency(), Opaque);
    s.flip();
    Surface copy;
    copy.CopyBlit(s);
    EXPECT_TRUE(s.blitTo(copy, 0, 0, 0xFFFFFFFFu, 1, 0, 0));
    std::vector<unsigned char> source(64, 7);
    s.fillWithData(source.data(), false);
    s.fillWithData(source.data(), true);
    int left, bottom, right, top;
    Surface small(2, 2, ARGB, true, 0, 0, 0);
    small.createBlack(false);
    small.setWidth(0x40000000u);
    small.findNonBlackArea(left, bottom, right, top);
    // Columns 2 and 3 read into the next line, as a column walk on such a picture does; the
    // columns past the memory hold nothing.
    EXPECT_EQ(small.findNonTransparentArea(), TopDownRect(0, 0, 4, 2));
    EXPECT_EQ(right, 0);  // black everywhere
    // A start line past the holder reads nothing.
    Surface shifted(4, 4, ARGB, true, 0, 0, 0);
    shifted.setStartLine(100);
    unsigned char r = 1, g = 1, b = 1;
    shifted.getRGBPixel(0, 0, r, g, b);
    shifted.setRGBAPixel(0, 0, 1, 2, 3, 4);
    shifted.createBlack(false);
    EXPECT_EQ(r, 1);
}
