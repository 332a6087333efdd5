// TGA files of the field's tools, decoded as OpenImageIO decodes them; our files read back by
// OpenImageIO and by us; and good files damaged many times over.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ole/image/tgaload.h"
#include "ole/platform/text/InputStream.h"
#include "ole/platform/text/KvText.h"
#include "tests/support/Interop.h"

using namespace Kv::Image;

namespace {

// OpenImageIO's decode with alpha left as the file has it (by default it multiplies the
// colours by alpha), as four channels, top line first.
Interop::PeerImage readUnassociated(const std::string& path)
{
    Interop::PeerImage out;
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    auto in = OIIO::ImageInput::open(path, &config);
    if (!in) return out;
    const OIIO::ImageSpec& spec = in->spec();
    const std::size_t pixels = std::size_t(spec.width) * spec.height;
    std::vector<unsigned char> data(pixels * spec.nchannels);
    if (!in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::UINT8, data.data())) return out;
    out.width = spec.width;
    out.height = spec.height;
    out.rgba.resize(pixels * 4);
    for (std::size_t i = 0; i < pixels; ++i) {
        std::memcpy(&out.rgba[i * 4], &data[i * spec.nchannels], 3);
        out.rgba[i * 4 + 3] = spec.nchannels == 4 ? data[i * 4 + 3] : 255;
    }
    return out;
}

// Loads as the library's loader does: size first, then back to the start and the whole file.
int loadFile(const std::string& path, Surface& image)
{
    SimpleFileInputStream in(fromUTF8(path.c_str()));
    int width = 0, height = 0;
    const int depth = getTGAImageSize(&in, width, height);
    in.rewind();
    return depth > 0 && loadTGAImage(&in, image) ? depth : -1;
}

::testing::AssertionResult samePixels(const Surface& ours, const Interop::PeerImage& peer)
{
    if (int(ours.getWidth()) != peer.width || int(ours.getHeight()) != peer.height)
        return ::testing::AssertionFailure() << "size " << ours.getWidth() << "x" << ours.getHeight() << ", peer "
                                             << peer.width << "x" << peer.height;
    for (int y = 0; y < peer.height; ++y)
        for (int x = 0; x < peer.width; ++x) {
            const unsigned char* p = ours.getRawLinePtr(y) + x * 4;  // blue, green, red, alpha
            const unsigned char* q = peer.pixel(x, y);                // red, green, blue, alpha
            if (p[2] != q[0] || p[1] != q[1] || p[0] != q[2] || p[3] != q[3])
                return ::testing::AssertionFailure() << "pixel " << x << "," << y;
        }
    return ::testing::AssertionSuccess();
}

// Flat stretches longer than a packet, pairs, and lines of noise with alpha of every value.
Surface paintedPicture(unsigned int width, unsigned int height)
{
    Surface picture(width, height, ARGB, true, 0, 0, 0);
    std::mt19937 random(42);
    for (unsigned int y = 0; y < height; ++y)
        for (unsigned int x = 0; x < width; ++x) {
            const std::uint32_t p = y % 3 == 2 ? std::uint32_t(random()) : x < 150 ? 0xFF336699u : (x / 2) * 0x01030507u;
            std::memcpy(picture.getRawLinePtr(y) + x * 4, &p, 4);
        }
    return picture;
}

// A picture with flat areas (runs), noise (raw packets), lines wider than a packet and alpha
// that changes from pixel to pixel.
std::string magickSource(int width, int height)
{
    return std::string(Interop::kMagick) + " -seed 7 -size " + std::to_string(width) + "x" +
           std::to_string(height) + " plasma:fractal -fill '#336699' -draw 'rectangle 2,3 " +
           std::to_string(width * 3 / 4) + "," + std::to_string(height / 2) + "'";
}

}  // namespace

TEST(TgaInterop, ImageMagickAndFfmpegFilesDecodeAsOpenImageIODoes)
{
    TempDir dir;
    struct Variant {
        std::string name, command;  // OUT stands for the file
        int depth;
        bool packed, topFirst;
    };
    std::vector<Variant> variants;
    for (int depth : {24, 32})
        for (bool packed : {false, true})
            for (bool topFirst : {false, true}) {
                const std::string options =
                    (depth == 32 ? " -alpha set -channel A -fx '(i*7+j*13)%256/255' +channel -type TrueColorAlpha"
                                 : " -type TrueColor") +
                    std::string(" -depth 8 -compress ") + (packed ? "RLE" : "None") + " -orient " +
                    (topFirst ? "TopLeft" : "BottomLeft");
                const std::string name = "magick" + std::to_string(depth) + (packed ? "rle" : "raw") + (topFirst ? "top" : "bottom");
                variants.push_back({name, magickSource(300, 23) + options + " OUT", depth, packed, topFirst});
                variants.push_back({name + "-id", magickSource(37, 9) + options + " -set comment 'an id' OUT", depth,
                                    packed, topFirst});
            }
    for (const std::string format : {"bgra", "bgr24"})
        for (const std::string rle : {"0", "1"})
            variants.push_back({"ffmpeg-" + format + rle,
                                std::string(Interop::kFfmpeg) + " -v error -y -f lavfi -i testsrc=size=301x31 "
                                                                "-frames 1 -pix_fmt " + format + " -rle " + rle + " OUT",
                                format == "bgra" ? 32 : 24, rle == "1", true});

    for (const Variant& v : variants) {
        SCOPED_TRACE(v.name);
        const std::string path = dir.file(v.name + ".tga");
        std::string command = v.command;
        command.replace(command.find("OUT"), 3, path);
        ASSERT_TRUE(Interop::run(command)) << command;
        // The maker wrote what the variant stands for.
        const std::string bytes = contents(path);
        ASSERT_GE(bytes.size(), 18u);
        EXPECT_EQ(bytes[2], v.packed ? 10 : 2);
        EXPECT_EQ(bytes[16], v.depth);
        EXPECT_EQ((bytes[17] & 0x20) != 0, v.topFirst);
        EXPECT_EQ(bytes[0] > 0, v.name.ends_with("-id"));

        Surface ours;
        ASSERT_EQ(loadFile(path, ours), v.depth);
        EXPECT_TRUE(samePixels(ours, readUnassociated(path)));
    }
}

TEST(TgaInterop, SavedFilesReadBackExactly)
{
    TempDir dir;
    const Surface picture = paintedPicture(301, 17);
    for (bool compressed : {false, true}) {
        const std::string path = dir.file("out.tga");
        ASSERT_TRUE(saveTGAImage(picture, fromUTF8(path.c_str()), compressed));
        EXPECT_TRUE(samePixels(picture, readUnassociated(path))) << compressed;
        Surface back;
        ASSERT_EQ(loadFile(path, back), 32);
        EXPECT_EQ(0, std::memcmp(back.getDataPtr(), picture.getDataPtr(), 301 * 17 * 4)) << compressed;
    }
}

// Good files, damaged by a seeded hand: bytes flipped or overwritten (the header above all),
// the file cut or lengthened. Loading must stay inside the memory it owns (the sanitizers
// watch) and take time in proportion to the file.
TEST(TgaDamage, SeededDamageNeverLeavesTheMemory)
{
    TempDir dir;
    const std::string path = dir.file("good.tga");
    std::vector<std::string> good;
    for (bool compressed : {false, true}) {
        ASSERT_TRUE(saveTGAImage(paintedPicture(67, 13), fromUTF8(path.c_str()), compressed));
        good.push_back(contents(path));
    }
    // The plain one at 24 bits, bottom-up.
    std::string narrow = good[0].substr(0, 18);
    narrow[16] = 24;
    narrow[17] = 0;
    for (std::size_t i = 18; i + 4 <= good[0].size(); i += 4) narrow += good[0].substr(i, 3);
    good.push_back(narrow);
    ASSERT_TRUE(Interop::run(magickSource(90, 20) + " -type TrueColor -depth 8 -compress RLE " + path));
    good.push_back(contents(path));

    std::mt19937 random(20240607);
    const auto start = std::chrono::steady_clock::now();
    int loaded = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string file = good[random() % good.size()];
        for (int edits = 1 + int(random() % 6); edits > 0 && file.size() > 18; --edits) {
            const std::size_t at = random() % file.size();
            switch (random() % 6) {
            case 0: file[at] = char(file[at] ^ (1 << (random() % 8))); break;
            case 1: file[at] = char(random()); break;
            case 2: file.resize(at); break;
            case 3: file[random() % 18] = char(random()); break;
            case 4: file[12 + random() % 4] = char(0xFF); break;  // a size far too large
            default: file += std::string(random() % 300, char(random())); break;
            }
        }
        MemoryInputStream in(file.data(), file.size());
        Surface image;
        loaded += loadTGAImage(&in, image);
        in.rewind();
        loadTGAImage(&in, image);  // into memory that is kept or replaced
        if (image.valid()) saveTGAImage(image, fromUTF8(path.c_str()), true);
    }
    EXPECT_GT(loaded, 300) << "the damage should leave many files readable";
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}
