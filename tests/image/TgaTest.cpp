// The TGA reader and writer on crafted files: refusals, memory reuse, packets running past a
// line or the picture's memory, files cut short, and the writer's exact packets.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "ole/Kv/KvException.h"
#include "ole/image/tgaload.h"
#include "ole/platform/text/InputStream.h"
#include "ole/platform/text/KvText.h"
#include "tests/image/ImageTestPictures.h"

using namespace Kv::Image;
using Bytes = std::string;
using Pixels = std::vector<std::uint32_t>;

namespace {

Bytes tgaHeader(int type, unsigned int width, unsigned int height, int depth, int descriptor)
{
    const unsigned char h[18] = {0, 0, (unsigned char)type, 0, 0, 0, 0, 0, 0, 0, 0, 0, (unsigned char)width,
                                 (unsigned char)(width >> 8), (unsigned char)height, (unsigned char)(height >> 8),
                                 (unsigned char)depth, (unsigned char)descriptor};
    return Bytes(reinterpret_cast<const char*>(h), 18);
}

Bytes pixel(std::uint32_t p, int depth = 32) { return Bytes(reinterpret_cast<const char*>(&p), depth / 8); }
Bytes run(unsigned int n, std::uint32_t p, int depth = 32) { return char(0x80 | (n - 1)) + pixel(p, depth); }
Bytes raw(const Pixels& pixels)
{
    Bytes b(1, char(pixels.size() - 1));
    for (std::uint32_t p : pixels) b += pixel(p);
    return b;
}

bool load(const Bytes& file, Surface& image)
{
    MemoryInputStream in(file.data(), file.size());
    return loadTGAImage(&in, image);
}

Pixels linePixels(const Surface& image, unsigned int y)
{
    Pixels line(image.getWidth());
    std::memcpy(line.data(), image.getRawLinePtr(y), line.size() * 4);
    return line;
}

const std::uint32_t kUntouched = 0xDEADBEEFu;

Surface filled(unsigned int width, unsigned int height)
{
    Surface s(width, height, ARGB, true, 0, 0, 0);
    FastMemSet(s.getDataPtr(), kUntouched, s.getImageSize());
    return s;
}

}  // namespace

TEST(Tga, HeadersItDoesNotTakeLeaveTheSurfaceAlone)
{
    int width = 0, height = 0;
    for (const Bytes& file : {tgaHeader(3, 7, 9, 32, 0), tgaHeader(11, 7, 9, 32, 0), tgaHeader(1, 7, 9, 24, 0),
                              tgaHeader(2, 7, 9, 16, 0)}) {
        MemoryInputStream in(file.data(), file.size());
        EXPECT_EQ(getTGAImageSize(&in, width, height), -1);
        Surface image = filled(1, 1);
        EXPECT_FALSE(load(file + Bytes(300, 'x'), image));
        EXPECT_EQ(linePixels(image, 0), Pixels{kUntouched});
    }
    EXPECT_EQ(height, 9) << "another depth still gives the size";
    const Bytes cut = tgaHeader(2, 7, 9, 32, 0).substr(0, 16);
    MemoryInputStream in(cut.data(), cut.size());
    EXPECT_EQ(getTGAImageSize(&in, width, height), -1);
    Surface image;
    EXPECT_FALSE(load(cut, image));
    MemoryInputStream nothing(nullptr, 0);
    EXPECT_EQ(getTGAImageSize(&nothing, width, height), -1);
}

TEST(Tga, KeepsTheMemoryOfAMatchingArgbSurfaceAndTakesPicturesOfNoLines)
{
    const Bytes file = tgaHeader(2, 2, 2, 32, 0x20) + Bytes(16, '\x01');
    Surface image = filled(2, 2);
    const iMemHolder* holder = image.getMemHolder().get();
    ASSERT_TRUE(load(file, image));
    EXPECT_EQ(image.getMemHolder().get(), holder);
    EXPECT_EQ(linePixels(image, 1), Pixels(2, 0x01010101u));
    Surface rgb(2, 2, RGB, true, 0, 0, 0);
    ASSERT_TRUE(load(file, rgb));
    EXPECT_TRUE(rgb.getDataFormat() == ARGB && rgb.getStride() == 8);

    // No lines: the picture is described and read, memory or none.
    const Bytes empty = tgaHeader(10, 12, 0, 32, 0x20);
    MemoryInputStream in(empty.data(), empty.size());
    int width = 0, height = 1;
    EXPECT_EQ(getTGAImageSize(&in, width, height), 32);
    EXPECT_EQ(height, 0);
    Surface fresh;
    EXPECT_TRUE(load(empty, fresh) && fresh.getWidth() == 12 && !fresh.valid());
    EXPECT_TRUE(load(empty, image) && image.getWidth() == 12);
}

TEST(Tga, PacketsRunOnPastTheLineButNeverPastTheMemory)
{
    // Bottom-up: the second file line is the top line, and its run of 6 writes on into the
    // line behind it in memory, which the file gave first.
    const std::uint32_t a = 0xFF0000AAu, y = 0xFF00FF00u;
    Surface image;
    ASSERT_TRUE(load(tgaHeader(10, 4, 2, 32, 0) + raw({a, a + 1, a + 2, a + 3}) + run(6, y), image));
    EXPECT_EQ(linePixels(image, 0), Pixels(4, y));
    EXPECT_EQ(linePixels(image, 1), (Pixels{y, y, a + 2, a + 3}));

    // The last line's run of 128 stops at the end of the memory, borrowed between guard words.
    for (int depth : {24, 32}) {
        Pixels memory(8, kUntouched);
        Surface borrowed(2, 2, ARGB, false, 0, 0, 0);
        borrowed.setDataPtr(reinterpret_cast<unsigned char*>(&memory[2]), 16);
        ASSERT_TRUE(load(tgaHeader(10, 2, 2, depth, 0x20) + run(2, 0x01, depth) + run(128, 0x02, depth) +
                             run(128, 0x03, depth), borrowed));
        const std::uint32_t alpha = depth == 24 ? 0xFF000000u : 0;
        EXPECT_EQ(memory, (Pixels{kUntouched, kUntouched, 0x01 | alpha, 0x01 | alpha, 0x02 | alpha, 0x02 | alpha,
                                  kUntouched, kUntouched}));
    }
}

TEST(Tga, FilesCutShortLeaveTheRestAsItWas)
{
    const std::uint32_t p = 0x11223344u;
    const struct {
        Bytes file;
        unsigned int pixelsRead;  // in file order, top first
    } cases[] = {
        {tgaHeader(2, 4, 2, 32, 0x20) + Bytes(4 * 5, '\x44'), 5},
        {tgaHeader(2, 4, 2, 24, 0x20) + Bytes(3 * 6 + 2, '\x44'), 6},  // cut inside a pixel
        {tgaHeader(10, 4, 2, 32, 0x20) + raw({p, p, p, p}) + raw({p, p, p}).substr(0, 1 + 4 * 2 + 3), 6},
        {tgaHeader(10, 4, 2, 24, 0x20) + run(4, p, 24) + "\x83\x01", 4},  // a run without its pixel
        {tgaHeader(10, 4, 2, 32, 0x20), 0},
    };
    for (const auto& c : cases) {
        Surface image = filled(4, 2);
        ASSERT_TRUE(load(c.file, image));
        Pixels all = linePixels(image, 0), bottom = linePixels(image, 1);
        all.insert(all.end(), bottom.begin(), bottom.end());
        for (unsigned int i = 0; i < 8; ++i) EXPECT_EQ(all[i] == kUntouched, i >= c.pixelsRead) << c.pixelsRead << " " << i;
    }
}

TEST(Tga, RefusesHeadersThatPromiseMoreThanTheFileCanHold)
{
    Surface image = filled(1, 1);
    EXPECT_FALSE(load(tgaHeader(10, 65535, 65535, 32, 0) + run(128, 1), image));
    EXPECT_EQ(image.getWidth(), 1u);

    // Ten full run packets describe at most ten lines of 128; one more packet's worth is given
    // the benefit of the doubt, two are not.
    Bytes runs;
    for (int i = 0; i < 10; ++i) runs += run(128, 0x01020304u);
    Surface fresh;
    EXPECT_TRUE(load(tgaHeader(10, 128, 10, 32, 0x20) + runs, fresh) && linePixels(fresh, 9) == Pixels(128, 0x01020304u));
    EXPECT_TRUE(load(tgaHeader(10, 128, 11, 32, 0x20) + runs, fresh));
    EXPECT_FALSE(load(tgaHeader(10, 128, 12, 32, 0x20) + runs, fresh));

    TempDir dir;  // the file stream tells its length too
    put(dir.file("huge.tga"), tgaHeader(2, 4000, 4000, 24, 0) + Bytes(1000, 'x'));
    SimpleFileInputStream in(fromUTF8(dir.file("huge.tga").c_str()));
    EXPECT_FALSE(loadTGAImage(&in, fresh));
}

namespace {

template <class Exception>
class ThrowingStream : public MemoryInputStream {
public:
    using MemoryInputStream::MemoryInputStream;
    unsigned int read(unsigned int, void*) override { throw Exception(); }
};

struct LibraryError : Kv::Exception::RuntimeError {
    LibraryError() : RuntimeError("disk gone", __FILE__, __LINE__) {}
};

struct ForeignError : std::runtime_error {
    ForeignError() : std::runtime_error("not ours") {}
};

}  // namespace

TEST(Tga, ExceptionsOfTheLibraryFamilyAreLoggedAndRefused)
{
    const Bytes file = tgaHeader(10, 2, 2, 32, 0x20) + run(4, 1);
    CapturingLogSink log;
    ThrowingStream<LibraryError> failing(file.data(), file.size());
    Surface image;
    EXPECT_FALSE(loadTGAImage(&failing, image));
    EXPECT_EQ(log.messages(), (std::vector<std::pair<iLogSink::Channel, std::string>>{
                                  {iLogSink::Both, "loadTGAImage() failed\n"}}));
    ThrowingStream<ForeignError> other(file.data(), file.size());
    EXPECT_THROW(loadTGAImage(&other, image), ForeignError);
}

// ---------------------------------------------------------------------------------------------
// Writing

namespace {

Surface lineOf(const Pixels& pixels)
{
    Surface s(unsigned(pixels.size()), 1, ARGB, true, 0, 0, 0);
    std::memcpy(s.getDataPtr(), pixels.data(), pixels.size() * 4);
    return s;
}

Bytes saved(const Base& image, bool compressed)
{
    TempDir dir;
    EXPECT_TRUE(saveTGAImage(image, LightweightString<char>(dir.file("out.tga").c_str()), compressed));
    return contents(dir.file("out.tga"));
}

}  // namespace

TEST(TgaSave, PacketsOfCraftedLines)
{
    const std::uint32_t A = 0xFF0000AAu, B = 0x800000BBu, C = 0xCCu, D = 0xDDu;
    Pixels different(129);
    for (std::uint32_t i = 0; i < 129; ++i) different[i] = i;
    const struct {
        Pixels line;
        Bytes packets;
    } cases[] = {
        {{A}, raw({A})},
        {{B, B, B}, run(3, B)},
        {{B, B, A}, run(2, B) + raw({A})},
        {Pixels(130, C), run(128, C) + run(2, C)},
        {different, raw(Pixels(different.begin(), different.end() - 1)) + raw({128})},
        {{A, B, B, B}, raw({A, B}) + run(2, B)},  // the raw packet takes in the pair's first
        {{A, B, B}, raw({A, B}) + raw({B})},
        {{A, B, C, C, D}, raw({A, B, C}) + raw({C, D})},
        {{A, A & 0xFFFFFFu}, raw({A, A & 0xFFFFFFu})},  // alpha counts
    };
    for (const auto& c : cases)
        EXPECT_EQ(saved(lineOf(c.line), true), tgaHeader(10, unsigned(c.line.size()), 1, 32, 0x28) + c.packets)
            << c.line.size() << " pixels";
}

TEST(TgaSave, PlainFilesStridesAndRefusals)
{
    Surface image(3, 2, ARGB, true, 0, 0, 0);
    for (unsigned int i = 0; i < 6; ++i) std::memcpy(image.getDataPtr() + i * 4, &i, 4);
    const Bytes memory(reinterpret_cast<const char*>(image.getDataPtr()), 24);
    EXPECT_EQ(saved(image, false), tgaHeader(2, 3, 2, 32, 0x28) + memory);

    // A padded picture goes out without its padding; a bottom-up one as it lies in memory.
    Surface padded(3, 2, ARGB, true, 0, 32, 20);
    std::memset(padded.getDataPtr(), 0xEE, 40);
    std::memcpy(padded.getDataPtr(), memory.data(), 12);
    std::memcpy(padded.getDataPtr() + 20, memory.data() + 12, 12);
    padded.setIsTopDown(false);
    EXPECT_EQ(saved(padded, false), tgaHeader(2, 3, 2, 32, 0x28) + memory);
    EXPECT_EQ(saved(padded, true), saved(image, true));

    TempDir dir;
    const LightweightString<wchar_t> path = fromUTF8(dir.file("x.tga").c_str());
    CapturingLogSink log;
    EXPECT_FALSE(saveTGAImage(Surface(), path, true));
    EXPECT_FALSE(saveTGAImage(Surface(4, 4, ARGB, false, 0, 0, 0), path, false));
    EXPECT_FALSE(std::filesystem::exists(dir.file("x.tga")));
    EXPECT_FALSE(saveTGAImage(image, fromUTF8(dir.file("no/folder.tga").c_str()), true));

    // Another format is taken four bytes a pixel all the same; its last line would reach past
    // the memory, and is left out.
    Surface rgb(4, 2, RGB, true, 0, 0, 0);
    std::memset(rgb.getDataPtr(), 7, rgb.getImageSize());
    const std::string out =
        ImageTest::printed([&] { EXPECT_EQ(saved(rgb, true), tgaHeader(10, 4, 2, 32, 0x28) + run(4, 0x07070707u)); });
    EXPECT_TRUE(ImageTest::hasAssertion(out, "sourceImage.getDataFormat() == Kv::Image::ARGB", "tgaload.cpp"));
}

TEST(TgaCount, HelpersKeepTheirOwnRules)
{
    Pixels same(200, 5), different(200);
    for (unsigned int i = 0; i < 200; ++i) different[i] = i;
    EXPECT_EQ(countSimilarPixels(&same[0], &same[199]), 129u) << "one more than a packet holds";
    EXPECT_EQ(countSimilarPixels(&same[0], &same[4]), 5u);
    EXPECT_EQ(countSimilarPixels(&same[3], &same[3]), 0u);
    Pixels runThenOther = {5, 5, 5, 6, 5}, pairAhead = {1, 2, 3, 4, 4, 4}, aba = {9, 8, 9};
    EXPECT_EQ(countSimilarPixels(&runThenOther[0], &runThenOther[4]), 3u);
    EXPECT_EQ(countSimilarPixels(&runThenOther[2], &runThenOther[4]), 0u);

    EXPECT_EQ(countDifferentPixels(&different[0], &different[199]), 128u);
    EXPECT_EQ(countDifferentPixels(&different[7], &different[7]), 1u);
    // The last pixel counts only once a successor is seen to differ from it.
    EXPECT_EQ(countDifferentPixels(&different[0], &different[2]), 2u);
    EXPECT_EQ(countDifferentPixels(&different[0], &different[4]), 4u);
    EXPECT_EQ(countDifferentPixels(&pairAhead[0], &pairAhead[5]), 3u);
    // The third pixel is looked at even when it lies one past the last.
    EXPECT_EQ(countDifferentPixels(&aba[0], &aba[1]), 1u);
}
