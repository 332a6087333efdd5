// The reference media service: in-memory host images and their renderer, and still files read
// and written through OpenImageIO.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "ole/image/KvImageWrapper.h"
#include "ole/platform/media/KvOIIOMediaServices.h"
#include "ole/platform/os/OS.h"
#include "ole/platform/text/KvText.h"
#include "tests/support/Interop.h"

namespace {

iMediaServices* media() { return Kv::Platform::referenceMediaServices(); }

LightweightString<wchar_t> wide(const std::string& path) { return fromUTF8(path.c_str()); }

// The bytes blue, green, red, alpha of one pixel, as a string for easy comparison.
std::string pixel(const Kv::Ptr<iHostImage>& image, int x, int y)
{
    Kv::Ptr<iPixelGuard> guard = image->lock();
    return std::string(reinterpret_cast<const char*>(guard->getPixels()) + std::size_t(y) * guard->getStride() + x * 4, 4);
}

void paint(const Kv::Ptr<iHostImage>& image, int x0, int x1, const char* bgra)
{
    Kv::Ptr<iPixelGuard> guard = image->lock();
    for (int y = 0; y < image->getSize().y; ++y)
        for (int x = x0; x < x1; ++x) std::memcpy(guard->getPixels() + std::size_t(y) * guard->getStride() + x * 4, bgra, 4);
}

bool draw(const Kv::Ptr<iHostImage>& target, const Kv::Ptr<iHostImage>& source, Kv::Rectangle<int> to,
          Kv::Rectangle<int> from, float opacity = 1.0f, int mode = iGraphicPrimitivesRenderer::Copy)
{
    return target->getPrimitivesRenderer(true)->draw(
        Kv::Ptr<iGraphicPrimitive>(new ImageDescription(source, to, from, 0, opacity)), mode);
}

}  // namespace

TEST(MediaServices, MakesZeroedThirtyTwoBitImages)
{
    EXPECT_EQ(OS()->mediaServices(), media());  // installed when the platform loaded
    Kv::Ptr<iHostImage> image = media()->createImage(XY<int>(7, 3));
    ASSERT_TRUE(image && image->getBitsPerPixel() == 32 && image->getStride() == 28);
    Kv::Ptr<iPixelGuard> guard = image->lock();
    EXPECT_EQ(guard->getSize(), XY<int>(7, 3));
    EXPECT_TRUE(std::all_of(guard->getPixels(), guard->getPixels() + 84, [](unsigned char v) { return v == 0; }));
    image.reset();
    guard->getPixels()[83] = 1;  // the guard keeps the pixels after the image's last owner
    for (XY<int> size : {XY<int>(0, 3), XY<int>(3, -1), XY<int>(1 << 16, 1 << 16)}) EXPECT_FALSE(media()->createImage(size));
    EXPECT_EQ(media()->createImage(XY<int>(2, 2))->createCompatibleImage(XY<int>(5, 4))->getSize(), XY<int>(5, 4));
}

// The source rectangle maps onto the target rectangle: a flat colour stays flat, what falls
// outside the target is cut off, reversed corners mean the same rectangle, and opacity lays the
// colour over what was there. What it cannot read it refuses.
TEST(MediaServices, RendererScalesARectangleIntoARectangle)
{
    Kv::Ptr<iHostImage> source = media()->createImage(XY<int>(40, 30)), target = media()->createImage(XY<int>(16, 16));
    paint(source, 0, 20, "\x0A\xC8\x1E\xFF");
    paint(source, 20, 40, "\xFA\x00\x00\xFF");
    paint(target, 0, 16, "\x02\x04\x06\x09");
    ASSERT_TRUE(draw(target, source, {8, 4, 24, 12}, {0, 0, 20, 30}));
    EXPECT_TRUE(pixel(target, 12, 8) == "\x0A\xC8\x1E\xFF" && pixel(target, 15, 4) == "\x0A\xC8\x1E\xFF");
    EXPECT_TRUE(pixel(target, 7, 8) == "\x02\x04\x06\x09" && pixel(target, 12, 12) == "\x02\x04\x06\x09");
    ASSERT_TRUE(draw(target, source, {16, 16, 0, 0}, {40, 30, 20, 0}, 0.5f));
    EXPECT_EQ(pixel(target, 0, 0), "\x7E\x02\x03\x84");
    EXPECT_TRUE(draw(target, source, {20, 20, 30, 30}, {0, 0, 40, 30}));  // nothing to do, and done

    // Refused: a mode it does not know, a source rectangle of no area or outside the source, a
    // host image that is not 32-bit. An 8-bit ARGB surface shown as a host image is drawn.
    EXPECT_FALSE(draw(target, source, {0, 0, 4, 4}, {0, 0, 4, 4}, 1.0f, 2) || draw(target, source, {0, 0, 4, 4}, {2, 2, 2, 4}) ||
                 draw(target, source, {0, 0, 4, 4}, {50, 10, 60, 20}));
    Kv::Image::Surface yuv(4, 4, Kv::Image::UYVY, true, 0, 0, 0), argb(4, 4, Kv::Image::ARGB, true, 0, 0, 0);
    EXPECT_FALSE(draw(target, Kv::Ptr<iHostImage>(new KvImageWrapper(yuv)), {0, 0, 4, 4}, {0, 0, 4, 4}));
    std::memset(argb.getDataPtr(), 0x80, argb.getImageSize());
    EXPECT_TRUE(draw(target, Kv::Ptr<iHostImage>(new KvImageWrapper(argb)), {0, 0, 4, 4}, {0, 0, 4, 4}));
    EXPECT_EQ(pixel(target, 2, 2), "\x80\x80\x80\x80");
}

// Transparent pixels lend no colour to their neighbours: the filter works on premultiplied
// colour.
TEST(MediaServices, TransparentPixelsDoNotBleed)
{
    Kv::Ptr<iHostImage> source = media()->createImage(XY<int>(64, 8)), target = media()->createImage(XY<int>(16, 2));
    paint(source, 0, 32, "\x00\x00\xFF\x00");  // transparent red
    paint(source, 32, 64, "\xFF\x00\x00\xFF");  // opaque blue
    ASSERT_TRUE(draw(target, source, {0, 0, 16, 2}, {0, 0, 64, 8}));
    for (int x = 6; x < 11; ++x) {
        const std::string p = pixel(target, x, 1);
        if (static_cast<unsigned char>(p[3]) < 8) continue;
        EXPECT_LE(static_cast<unsigned char>(p[2]), 2) << "red at " << x;
        EXPECT_GE(static_cast<unsigned char>(p[0]), 250) << "blue at " << x;
    }
}

// PNG keeps alpha, JPEG has none and loses it; a 64-bit host image is written with 16-bit
// channels. OpenImageIO and ImageMagick are the peers.
TEST(MediaServices, SavesAndLoadsThroughOpenImageIO)
{
    TempDir dir;
    Kv::Ptr<iHostImage> image = media()->createImage(XY<int>(5, 3));
    paint(image, 0, 4, "\x0A\x14\x1E\x80");
    paint(image, 4, 5, "\xC8\x96\x64\xFF");
    const std::string png = dir.file("picture.png"), jpeg = dir.file("picture.jpg");
    ASSERT_TRUE(media()->saveImage(image, wide(png)));
    OIIO::ImageSpec asIs;  // the file's own values, colour not multiplied by alpha
    asIs.attribute("oiio:UnassociatedAlpha", 1);
    auto file = OIIO::ImageInput::open(png, &asIs);
    unsigned char rgba[5 * 3 * 4];
    ASSERT_TRUE(file && file->spec().nchannels == 4 && file->read_image(0, 0, 0, 4, OIIO::TypeDesc::UINT8, rgba));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(rgba), 4), "\x1E\x14\x0A\x80");  // red first in the file
    EXPECT_EQ(std::string(reinterpret_cast<char*>(rgba) + 56, 4), "\x64\x96\xC8\xFF");
    Kv::Ptr<iHostImage> back = media()->loadImage(wide(png));
    ASSERT_TRUE(back);
    EXPECT_TRUE(pixel(back, 4, 2) == "\xC8\x96\x64\xFF" && pixel(back, 0, 0) == "\x0A\x14\x1E\x80");
    ASSERT_TRUE(media()->saveImage(image, wide(jpeg)));
    EXPECT_EQ(Interop::readWithOIIO(jpeg).fileChannels, 3);

    Kv::Image::Surface deep(2, 1, Kv::Image::ARGB, true, 16, 0, 0);  // words red, green, blue, alpha
    const std::uint16_t words[8] = {65535, 1000, 0, 65535, 0, 0, 40000, 65535};
    std::memcpy(deep.getDataPtr(), words, sizeof words);
    const std::string deepPng = dir.file("deep.png");
    ASSERT_TRUE(media()->saveImage(Kv::Ptr<iHostImage>(new KvImageWrapper(deep)), wide(deepPng)));
    auto input = OIIO::ImageInput::open(deepPng);
    std::uint16_t read[8] = {};
    ASSERT_TRUE(input && input->spec().format == OIIO::TypeDesc::UINT16);
    ASSERT_TRUE(input->read_image(0, 0, 0, 4, OIIO::TypeDesc::UINT16, read));
    EXPECT_EQ(std::vector<std::uint16_t>(read, read + 8), std::vector<std::uint16_t>(words, words + 8));

    const std::string grey = dir.file("grey.png");
    ASSERT_TRUE(Interop::run(std::string(Interop::kMagick) + " -size 3x2 xc:'gray(40)' -depth 8 -type Grayscale " + grey));
    Kv::Ptr<iHostImage> greyImage = media()->loadImage(wide(grey));
    ASSERT_TRUE(greyImage);
    EXPECT_EQ(pixel(greyImage, 2, 1), "\x28\x28\x28\xFF");
}

TEST(MediaServices, FailsQuietlyAndListsItsTypes)
{
    TempDir dir;
    put(dir.file("garbage.png"), "not a picture at all");
    EXPECT_FALSE(media()->loadImage(wide(dir.file("missing.png"))) || media()->loadImage(wide(dir.file("garbage.png"))));
    Kv::Ptr<iHostImage> image = media()->createImage(XY<int>(2, 2));
    EXPECT_FALSE(media()->saveImage(image, wide(dir.file("picture.unknown-type"))) ||
                 media()->saveImage(Kv::Ptr<iHostImage>(), wide(dir.file("none.png"))));
    Kv::Image::Surface yuv(4, 4, Kv::Image::UYVY, true, 0, 0, 0);
    EXPECT_FALSE(media()->saveImage(Kv::Ptr<iHostImage>(new KvImageWrapper(yuv)), wide(dir.file("yuv.png"))));

    iMediaServices::ImageTypeList loadable, savable;
    media()->getLoadableImageTypes(loadable);
    media()->getSavableImageTypes(savable);
    auto has = [](const iMediaServices::ImageTypeList& list, const wchar_t* extension) {
        return std::any_of(list.begin(), list.end(), [&](const iMediaServices::ImageType& type) {
            return std::find(type.extensions.begin(), type.extensions.end(), LightweightString<wchar_t>(extension)) !=
                   type.extensions.end();
        });
    };
    for (const wchar_t* e : {L"png", L"jpg", L"tif", L"bmp"}) EXPECT_TRUE(has(loadable, e) && has(savable, e));
    EXPECT_FALSE(has(loadable, L"docx"));
}
