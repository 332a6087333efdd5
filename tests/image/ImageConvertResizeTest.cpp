// ImageConverter's sizes: the pixel skip, the aspect-preserving fits (through the swscale
// plug-in of the build tree), the routes through host renderers and the grey host image, on the
// reference media service's host images.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ole/image/ImageConvert.h"
#include "ole/platform/media/KvMediaServices.h"
#include "ole/platform/os/OS.h"
#include "tests/image/ImageTestPictures.h"

using namespace Kv::Image;
using ImageTest::hasAssertion;
using ImageTest::printed;

namespace {

// Each pixel's word is its position: y in the high half, x in the low.
Surface numbered(unsigned w, unsigned h)
{
    Surface s(w, h, ARGB, true, 0, 0, 0);
    for (unsigned i = 0; i < w * h; ++i) {
        const std::uint32_t word = i / w << 16 | i % w;
        std::memcpy(s.getDataPtr() + 4 * i, &word, 4);
    }
    return s;
}

std::uint32_t wordAt(const unsigned char* p, std::size_t stride, int x, int y)
{
    std::uint32_t w;
    std::memcpy(&w, p + std::size_t(y) * stride + x * 4, 4);
    return w;
}
std::uint32_t wordAt(const Surface& s, int x, int y) { return wordAt(s.getDataPtr(), s.getStride(), x, y); }
std::uint32_t wordAt(const Kv::Ptr<iHostImage>& image, int x, int y)
{
    Kv::Ptr<iPixelGuard> guard = image->lock();
    return wordAt(guard->getPixels(), guard->getStride(), x, y);
}

void fill(unsigned char* p, std::size_t bytes, std::uint32_t word)
{
    for (std::size_t i = 0; i + 4 <= bytes; i += 4) std::memcpy(p + i, &word, 4);
}
void fill(Surface& s, std::uint32_t word) { fill(s.getDataPtr(), s.getImageSize(), word); }

Kv::Ptr<iHostImage> hostImage(int w, int h, std::uint32_t word)
{
    Kv::Ptr<iHostImage> image = OS()->mediaServices()->createImage(XY<int>(w, h));
    fill(image->lock()->getPixels(), std::size_t(w) * h * 4, word);
    return image;
}

}  // namespace

TEST(ImageConvertResize, PixelSkipTakesEverySkipthPixelOfEverySkipthLineWithinMemory)
{
    EXPECT_TRUE(ImageConverter::canPerformPixelSkipResize(1920, 1080, 960, 540));
    EXPECT_FALSE(ImageConverter::canPerformPixelSkipResize(1920, 1080, 960, 270));  // quotients 2 and 4
    EXPECT_FALSE(ImageConverter::canPerformPixelSkipResize(720, 576, 720, 576));
    EXPECT_FALSE(ImageConverter::canPerformPixelSkipResize(720, 576, 700, 288));
    EXPECT_FALSE(ImageConverter::canPerformPixelSkipResize(720, 576, 0, 0));

    Surface src = numbered(4, 4), dst(2, 2, ARGB, true, 0, 0, 0);
    ASSERT_TRUE(ImageConverter::pixelSkipResize(src, dst));
    EXPECT_TRUE(wordAt(dst, 1, 0) == 0x00000002u && wordAt(dst, 0, 1) == 0x00020000u && wordAt(dst, 1, 1) == 0x00020002u);
    Surface rgb(4, 4, RGB, true, 0, 0, 0), noData(2, 2, ARGB, false, 0, 0, 0);
    EXPECT_FALSE(ImageConverter::pixelSkipResize(rgb, dst));
    EXPECT_FALSE(ImageConverter::pixelSkipResize(src, noData));

    // Descriptors that promise more than the memory holds: the walk stops at either edge.
    Surface eight = numbered(8, 8), shortDst(4, 4, ARGB, false, 0, 0, 0);
    std::vector<std::uint32_t> out(5, 0xEEEEEEEEu);
    shortDst.setDataPtr(reinterpret_cast<unsigned char*>(out.data()), 4 * 4);
    ASSERT_TRUE(ImageConverter::pixelSkipResize(eight, shortDst));
    EXPECT_EQ(out[3], 0x00000006u);
    EXPECT_EQ(out[4], 0xEEEEEEEEu);
}

// 1920x1080 into 720x576: 405 lines from line 85. 720x576 into 1920x1080 is enlarged to 1350
// columns from 285. 100x400 into 200x200, smaller one way and larger the other, is reduced:
// 50 columns from 75. The border is left as it was.
TEST(ImageConvertResize, AspectPreservingLetterboxesAndPillarboxes)
{
    struct Case {
        unsigned w, h, dw, dh;
        int x0, y0, x1, y1;  // the picture, right and bottom exclusive
    };
    for (const Case& c : {Case{1920, 1080, 720, 576, 0, 85, 720, 490}, Case{720, 576, 1920, 1080, 285, 0, 1635, 1080},
                          Case{100, 400, 200, 200, 75, 0, 125, 200}}) {
        Surface src(c.w, c.h, ARGB, true, 0, 0, 0), dest(c.dw, c.dh, ARGB, true, 0, 0, 0);
        fill(src, 0xFF204060u);
        fill(dest, 0x12345678u);
        ImageConverter::aspectPreservingResize(src, dest);
        const int mx = (c.x0 + c.x1) / 2, my = (c.y0 + c.y1) / 2;
        EXPECT_EQ(wordAt(dest, c.x0, c.y0), 0xFF204060u) << c.w << "x" << c.h;
        EXPECT_EQ(wordAt(dest, c.x1 - 1, c.y1 - 1), 0xFF204060u) << c.w << "x" << c.h;
        // Just outside the picture, on the two sides that have a border.
        const bool letterbox = c.y0 > 0;
        EXPECT_EQ(letterbox ? wordAt(dest, mx, c.y0 - 1) : wordAt(dest, c.x0 - 1, my), 0x12345678u);
        EXPECT_EQ(letterbox ? wordAt(dest, mx, c.y1) : wordAt(dest, c.x1, my), 0x12345678u);
    }
}

// Equal sizes: resize succeeds without writing; aspectPreservingResize copies the destination's
// image size packed, within both memories, printing the assertion when the formats differ.
TEST(ImageConvertResize, EqualSizes)
{
    Surface src = numbered(8, 4), yuv(8, 4, UYVY, true, 0, 0, 0), bgra(8, 4, BGRA, true, 0, 0, 0);
    std::memset(yuv.getDataPtr(), 0x33, yuv.getImageSize());
    EXPECT_TRUE(ImageConverter::resize(src, yuv));
    EXPECT_EQ(yuv.getDataPtr()[0], 0x33);

    EXPECT_TRUE(hasAssertion(printed([&] { ImageConverter::aspectPreservingResize(src, bgra); }),
                             "src.getDataFormat() == dest.getDataFormat()", "ImageConvertResize.cpp"));
    EXPECT_EQ(std::memcmp(src.getDataPtr(), bgra.getDataPtr(), 8 * 4 * 4), 0);

    Surface narrow = numbered(2, 2), wide(2, 2, ARGB, true, 0, 0, 16);
    fill(wide, 0xAAAAAAAAu);
    ImageConverter::aspectPreservingResize(narrow, wide);
    EXPECT_EQ(wordAt(wide, 3, 0), 0x00010001u);
    EXPECT_EQ(wordAt(wide, 0, 1), 0xAAAAAAAAu);  // the source's 16 bytes ran out
}

TEST(ImageConvertResize, PairFormLogsWithoutARenderer)
{
    CapturingLogSink log;
    Surface src = numbered(8, 8), dst(4, 4, ARGB, true, 0, 0, 0);
    EXPECT_FALSE(ImageConverter::resize(std::make_pair(&src, TopDownRect(0, 0, 8, 8)), dst));
    EXPECT_EQ(log.messages(), (std::vector<std::pair<iLogSink::Channel, std::string>>{
                                  {iLogSink::AppLog, "ImageConverter::resize() failed\n"}}));
}

// The host forms draw with the service's renderer. A rectangle of no area means the whole
// source; at the same size the Lanczos filter gives every pixel back as it was.
TEST(ImageConvertResize, HostFormsDrawThroughTheRenderer)
{
    Kv::Ptr<iHostImage> src = hostImage(8, 8, 0xFFC80000u);
    {
        Kv::Ptr<iPixelGuard> guard = src->lock();
        for (int y = 0; y < 8; ++y) fill(guard->getPixels() + y * 32, 16, 0xFF0000C8u);  // left half red
    }
    Kv::Ptr<iHostImage> whole = ImageConverter::resize(src, XY<int>(8, 8), Kv::Rectangle<int>(3, 3, 9, 3));
    ASSERT_TRUE(whole);
    EXPECT_EQ(wordAt(whole, 3, 7), 0xFF0000C8u);
    EXPECT_EQ(wordAt(whole, 4, 0), 0xFFC80000u);
    Kv::Ptr<iHostImage> left = ImageConverter::resize(src, XY<int>(3, 3), Kv::Rectangle<int>(0, 0, 4, 8));
    EXPECT_EQ(wordAt(left, 2, 2), 0xFF0000C8u);
    EXPECT_FALSE(ImageConverter::resize(Kv::Ptr<iHostImage>(), XY<int>(2, 2), {}));
    EXPECT_FALSE(ImageConverter::resize(src, XY<int>(0, 2), {}));

    Kv::Ptr<iHostImage> wide = hostImage(200, 100, 0xFF336699u);
    Kv::Ptr<iHostImage> fitted = ImageConverter::aspectPreservingResize(wide, XY<int>(100, 100));
    EXPECT_EQ(wordAt(fitted, 50, 24), 0u);  // a new host image starts transparent black
    EXPECT_EQ(wordAt(fitted, 0, 25), 0xFF336699u);
    EXPECT_EQ(wordAt(fitted, 99, 74), 0xFF336699u);
    EXPECT_EQ(wordAt(fitted, 50, 75), 0u);
    Kv::Ptr<iHostImage> same = ImageConverter::aspectPreservingResize(wide, XY<int>(200, 100));
    EXPECT_NE(same.get(), wide.get());
    EXPECT_EQ(wordAt(same, 199, 99), 0xFF336699u);
    EXPECT_FALSE(ImageConverter::aspectPreservingResize(Kv::Ptr<iHostImage>(), XY<int>(4, 4)));
}

// A quarter of the sum, not a third: white comes out at 191.
TEST(ImageConvertResize, GreyImageAveragesByAQuarter)
{
    Kv::Ptr<iHostImage> src = hostImage(3, 2, 0x80FFFFFFu);
    std::memcpy(src->lock()->getPixels() + 4, "\x0A\x14\x1E\x28", 4);
    Kv::Ptr<iHostImage> grey = ImageConverter::makeGreyscaleImage(src);
    ASSERT_TRUE(grey);
    EXPECT_EQ(wordAt(grey, 0, 0), 0x80BFBFBFu);
    EXPECT_EQ(wordAt(grey, 1, 0), 0x280F0F0Fu);
    EXPECT_EQ(wordAt(src, 0, 0), 0x80FFFFFFu) << "the source is left alone";
    EXPECT_FALSE(ImageConverter::makeGreyscaleImage(Kv::Ptr<iHostImage>()));
}
