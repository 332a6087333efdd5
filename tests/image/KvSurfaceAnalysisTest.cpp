#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ole/image/KvSurface.h"
#include "tests/image/ImageTestPictures.h"

using namespace Kv::Image;
using ImageTest::printed;

namespace {

// An ARGB picture with every pixel set to one 32-bit word.
Surface filled(unsigned int w, unsigned int h, std::uint32_t word, unsigned short stride = 0)
{
    Surface s(w, h, ARGB, true, 0, 0, stride);
    FastMemSet(s.getDataPtr(), word, s.getImageSize());
    return s;
}

void put(Surface& s, unsigned int x, unsigned int y, std::uint32_t word)
{
    std::memcpy(s.getDataPtr() + y * s.getStride() + x * 4, &word, 4);
}

// findNonBlackArea's left, bottom, right and top.
std::vector<int> nonBlack(Surface& s)
{
    int left = -1, bottom = -1, right = -1, top = -1;
    s.findNonBlackArea(left, bottom, right, top);
    return {left, bottom, right, top};
}

}  // namespace

TEST(KvSurfaceAnalysis, BlackIsWithinTheTolerance)
{
    ASSERT_EQ(autoCropTolerance(), 32);
    Surface s = filled(10, 10, 0xFF202020u);  // (32, 32, 32), opaque: still black
    EXPECT_FALSE(s.horizLineIsBlack(3));
    EXPECT_FALSE(s.vertLineIsBlack(3));
    put(s, 7, 3, 0x00002100u);  // one byte of 33
    EXPECT_TRUE(s.horizLineIsBlack(3));
    EXPECT_TRUE(s.vertLineIsBlack(7));
    EXPECT_FALSE(s.vertLineIsBlack(6));
}

TEST(KvSurfaceAnalysis, NonBlackAreaCountsFromTheBottom)
{
    Surface s = filled(10, 10, 0xFF000000u);
    EXPECT_EQ(nonBlack(s), (std::vector<int>{0, 0, 0, 0})) << "black everywhere";
    put(s, 4, 0, 0xFFFFFFFFu);
    EXPECT_EQ(nonBlack(s), (std::vector<int>{4, 10, 4, 10}));
    put(s, 9, 6, 0xFF400000u);
    EXPECT_EQ(nonBlack(s), (std::vector<int>{4, 4, 9, 10}));
}

TEST(KvSurfaceAnalysis, NonTransparentAreaIsTopDownAndExclusive)
{
    Surface s = filled(8, 6, 0x02FFFFFFu);  // alpha 2: transparent
    EXPECT_TRUE(s.horizLineIsTransparent(0));
    EXPECT_EQ(s.findNonTransparentArea(), TopDownRect());
    put(s, 3, 4, 0x03000000u);  // alpha 3: not
    EXPECT_FALSE(s.horizLineIsTransparent(4));
    EXPECT_TRUE(s.vertLineIsTransparent(3, 5, 5));
    EXPECT_FALSE(s.vertLineIsTransparent(3, 0, 6));
    EXPECT_EQ(s.findNonTransparentArea(), TopDownRect(3, 4, 4, 5));
    put(s, 0, 0, 0xFF000000u);
    put(s, 7, 5, 0xFF000000u);
    EXPECT_EQ(s.findNonTransparentArea(), TopDownRect(0, 0, 8, 6));
    const std::string out = printed([&] { EXPECT_TRUE(s.vertLineIsTransparent(3, 5, 4)); });
    EXPECT_NE(out.find("assertion failed startY <= endY"), std::string::npos);
}

TEST(KvSurfaceAnalysis, SearchesStayInsideTheHolder)
{
    // A padded picture, and descriptors that claim more than the memory holds.
    Surface padded = filled(4, 4, 0xFF000000u, 24);
    put(padded, 3, 3, 0xFFFFFFFFu);
    EXPECT_EQ(nonBlack(padded)[3], 1) << "columns step by width, off the column";
    Surface grown = filled(4, 4, 0x00000000u);
    grown.setWidth(4000);
    grown.setHeight(4000);
    EXPECT_FALSE(grown.horizLineIsBlack(3));
    EXPECT_FALSE(grown.horizLineIsBlack(3999));
    EXPECT_FALSE(grown.vertLineIsBlack(3999));
    EXPECT_TRUE(grown.vertLineIsTransparent(2, 0, 4000));
    nonBlack(grown);
    EXPECT_EQ(grown.findNonTransparentArea(), TopDownRect());
    Surface empty;
    EXPECT_FALSE(empty.horizLineIsBlack(0));
    EXPECT_TRUE(empty.horizLineIsTransparent(0));
}

TEST(KvSurfaceAnalysis, GreyPreviewTakesTheFirstByteOfEachPair)
{
    Surface yuv(3, 2, YUY2, true, 0, 0, 8);  // stride 8: padded by two bytes
    const unsigned char lines[16] = {10, 99, 20, 99, 30, 99, 0, 0, 40, 99, 50, 99, 60, 99, 0, 0};
    std::memcpy(yuv.getDataPtr(), lines, 16);
    Surface grey = yuvToARGB(yuv);
    ASSERT_EQ(grey.getDataFormat(), ARGB);
    std::vector<std::uint32_t> px(6);
    std::memcpy(px.data(), grey.getDataPtr(), 24);
    EXPECT_EQ(px, (std::vector<std::uint32_t>{0xFF0A0A0Au, 0xFF141414u, 0xFF1E1E1Eu, 0xFF282828u, 0xFF323232u, 0xFF3C3C3Cu}));

    unsigned char y = 0, r = 0, g = 0, b = 0;
    char u = 0, v = 0;
    const std::string out = printed([&] {
        RGBtoYUV(1, 2, 3, y, u, v);
        YUVtoRGB(1, 2, 3, r, g, b);
    });
    EXPECT_EQ(y + u + v + r + g + b, 0);
    EXPECT_NE(out.find("assertion failed false"), std::string::npos);
}
