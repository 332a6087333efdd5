// The GIF decoder: crafted streams that pin its own rules, files made by ImageMagick and ffmpeg
// compared with OpenImageIO's reading of them, and damaged files.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "ole/image/Gif.h"
#include "tests/support/Interop.h"

using Kv::Image::Surface;

namespace {

using Indices = std::vector<unsigned char>;

// Codes of given widths, low bit first, cut into sub-blocks behind the minimum code size.
struct CodeWriter {
    std::string bytes;
    unsigned int acc = 0, bits = 0;

    void put(unsigned int code, unsigned int width)
    {
        acc |= code << bits;
        for (bits += width; bits >= 8; bits -= 8, acc >>= 8) bytes += char(acc & 0xFF);
    }
    std::string blocks(unsigned int minCodeSize)
    {
        if (bits) bytes += char(acc);
        std::string out(1, char(minCodeSize));
        for (std::size_t i = 0; i < bytes.size(); i += 255) {
            const std::size_t n = std::min<std::size_t>(255, bytes.size() - i);
            out += char(n) + bytes.substr(i, n);
        }
        return out + '\0';
    }
};

// A plain LZW encoder that widens as the common encoders do. At 4096 entries it clears, or with
// `deferClear` it goes on with 12-bit codes and no new entries.
std::string lzw(const Indices& in, unsigned int minCodeSize, bool deferClear = false)
{
    const unsigned int clear = 1u << minCodeSize;
    unsigned int next = clear + 2, width = minCodeSize + 1;
    std::map<unsigned int, unsigned int> dict;
    CodeWriter out;
    auto emit = [&](unsigned int code) {
        out.put(code, width);
        if (next >= (1u << width) && width < 12) ++width;
    };
    emit(clear);
    unsigned int cur = in.empty() ? 0 : in[0];
    for (std::size_t i = 1; i < in.size(); ++i) {
        const unsigned int key = cur << 8 | in[i];
        if (auto it = dict.find(key); it != dict.end()) {
            cur = it->second;
            continue;
        }
        emit(cur);
        if (next < 4096) {
            dict[key] = next++;
        } else if (!deferClear) {
            emit(clear);
            dict.clear();
            next = clear + 2;
            width = minCodeSize + 1;
        }
        cur = in[i];
    }
    if (!in.empty()) emit(cur);
    emit(clear + 1);
    return out.blocks(minCodeSize);
}

std::string word(unsigned int v) { return {char(v & 0xFF), char(v >> 8)}; }

struct Rgb { unsigned char r, g, b; };

// A GIF put together block by block.
struct GifBuilder {
    std::string s;

    GifBuilder(unsigned int w, unsigned int h, const std::vector<Rgb>& palette)
    {
        unsigned int bits = 0;
        while (palette.size() > (2u << bits)) ++bits;
        s = "GIF89a" + word(w) + word(h) + char(palette.empty() ? 0 : 0x80 | bits) + '\0' + '\0';
        for (std::size_t i = 0; !palette.empty() && i < (2u << bits); ++i) {
            const Rgb c = i < palette.size() ? palette[i] : Rgb{0, 0, 0};
            s += {char(c.r), char(c.g), char(c.b)};
        }
    }
    GifBuilder& control(unsigned int delay, int transparent)
    {
        s += std::string("\x21\xF9\x04", 3) + char(transparent >= 0) + word(delay) +
             char(std::max(transparent, 0)) + '\0';
        return *this;
    }
    GifBuilder& image(unsigned int w, unsigned int h, const std::string& data, bool interlaced = false)
    {
        s += ',' + word(0) + word(0) + word(w) + word(h) + char(interlaced ? 0x40 : 0) + data;
        return *this;
    }
    std::string done() const { return s + ';'; }
};

Gif decode(const std::string& file, Gif::GifReadDetails details = 1)
{
    return Gif(reinterpret_cast<const unsigned char*>(file.data()), file.size(), details);
}

// The picture's pixels as ARGB words, top line first.
std::vector<std::uint32_t> wordsOf(const Surface& s)
{
    std::vector<std::uint32_t> w(std::size_t(s.getWidth()) * s.getHeight());
    if (s.valid()) std::memcpy(w.data(), s.getDataPtr(), w.size() * 4);
    return w;
}

std::uint32_t peerWord(const Interop::PeerImage& p, int x, int y)
{
    const unsigned char* q = p.pixel(x, y);
    return std::uint32_t(q[3]) << 24 | q[0] << 16 | q[1] << 8 | q[2];
}

// Copies a GIF without its graphic control blocks.
std::string withoutControlBlocks(const std::string& f)
{
    auto u = [&](std::size_t i) { return static_cast<unsigned char>(f[i]); };
    auto subBlocks = [&](std::size_t p) { while (u(p)) p += u(p) + 1; return p + 1; };
    std::size_t p = 13 + ((u(10) & 0x80) ? 3 * (2u << (u(10) & 7)) : 0);
    std::string out = f.substr(0, p);
    while (p < f.size() && u(p) != 0x3B) {
        std::size_t q = u(p) == 0x21 ? subBlocks(p + 2) : p + 10;
        if (u(p) == 0x2C) q = subBlocks(q + ((u(p + 9) & 0x80) ? 3 * (2u << (u(p + 9) & 7)) : 0) + 1);
        if (!(u(p) == 0x21 && u(p + 1) == 0xF9)) out += f.substr(p, q - p);
        p = q;
    }
    return out + ';';
}

// The largest single block asked of the memory service.
struct PeakMemory final : iMemory {
    iMemory* previous = OS()->setMemory(this);
    std::size_t peak = 0;
    ~PeakMemory() { OS()->setMemory(previous); }
    void* allocate(std::size_t bytes) override { return peak = std::max(peak, bytes), previous->allocate(bytes); }
    void release(void* block) override { previous->release(block); }
};

}  // namespace

TEST(Gif, SmallPaletteKeepsGreyRampBeyondItAndDelayStartsAt17)
{
    const std::string f = GifBuilder(4, 1, {{10, 20, 30}, {200, 100, 50}}).image(4, 1, lzw({0, 1, 2, 3}, 2)).done();
    Gif gif = decode(f);
    ASSERT_EQ(gif.frames.size, 1u);
    EXPECT_EQ(gif.frames[0]->delay, 17u);
    EXPECT_EQ(wordsOf(gif.getImage(0)),
              (std::vector<std::uint32_t>{0xFF0A141E, 0xFFC86432, 0xFF020202, 0xFF030303}));
    EXPECT_FALSE(gif.getImage(1).valid());
}

TEST(Gif, ControlStateCarriesOverAndTransparencyGoesByColour)
{
    const std::string data = lzw({0, 1, 2, 3}, 2);
    const std::string f = GifBuilder(4, 1, {{1, 2, 3}, {9, 9, 9}, {9, 9, 9}, {4, 5, 6}})
                              .image(4, 1, data).control(30, 1).image(4, 1, data).image(4, 1, data).done();
    Gif gif = decode(f);
    ASSERT_EQ(gif.frames.size, 3u);
    EXPECT_EQ(gif.frames[0]->delay, 17u);
    EXPECT_EQ(gif.frames[2]->delay, 30u);
    const std::vector<std::uint32_t> opaque{0xFF010203, 0xFF090909, 0xFF090909, 0xFF040506};
    const std::vector<std::uint32_t> keyed{0xFF010203, 0x00090909, 0x00090909, 0xFF040506};
    EXPECT_EQ(wordsOf(gif.getImage(0)), opaque);
    EXPECT_EQ(wordsOf(gif.getImage(1)), keyed);
    EXPECT_EQ(wordsOf(gif.getImage(2)), keyed);  // no block of its own: inherits the key
    EXPECT_EQ(decode(f, 0).frames.size, 1u);
}

TEST(Gif, InterlacedLinesArriveInPassOrder)
{
    for (unsigned int h = 1; h <= 8; ++h) {
        Indices file;  // line y holds index y, three pixels wide, in the file's pass order
        for (unsigned int start : {0u, 4u, 2u, 1u})
            for (unsigned int y = start; y < h; y += start == 0 ? 8 : start * 2) file.insert(file.end(), 3, y);
        Gif gif = decode(GifBuilder(3, h, {}).image(3, h, lzw(file, 3), true).done());
        const std::vector<std::uint32_t> w = wordsOf(gif.getImage(0));
        ASSERT_EQ(w.size(), 3u * h);
        // With fewer than 5 lines a pass is empty, and each empty pass takes a byte with it.
        for (unsigned int y = 0; y < (h >= 5 ? h : 1); ++y)
            for (unsigned int x = 0; x < 3; ++x) EXPECT_EQ(w[y * 3 + x], 0xFF000000u | y * 0x010101u) << h << " " << y;
    }
}

TEST(Gif, LzwStreamsOfCommonEncodersDecodeExactly)
{
    std::mt19937 random(7);
    for (unsigned int minCodeSize : {2u, 3u, 5u, 8u, 11u}) {
        const unsigned int colours = std::min(256u, 1u << minCodeSize);
        Indices noisy(160 * 120), runs(160 * 120);
        for (auto& v : noisy) v = static_cast<unsigned char>(random() % colours);
        for (std::size_t i = 0; i < runs.size(); ++i) runs[i] = static_cast<unsigned char>((i / 37) % colours);
        for (const Indices* in : {&noisy, &runs}) {
            for (bool defer : {false, true}) {
                Gif gif = decode(GifBuilder(160, 120, {}).image(160, 120, lzw(*in, minCodeSize, defer)).done());
                ASSERT_EQ(gif.frames.size, 1u);
                const GifFrame& frame = *gif.frames[0];
                ASSERT_TRUE(frame.pixels);
                EXPECT_TRUE(std::equal(in->begin(), in->end(), frame.pixels)) << minCodeSize << defer;
                // Past code 4095 the width stays at 12 and decoding goes on.
                EXPECT_TRUE(!defer || in != &noisy || minCodeSize < 8 || frame.codeSize == 12) << minCodeSize;
            }
        }
    }
}

TEST(Gif, CorruptStreamsStayInsideTheirFrame)
{
    // A chain that loops (an entry made its own prefix right after a clear) spells nothing, and
    // the codes after it are decoded as usual.
    CodeWriter loop;
    for (auto [code, width] : {std::pair{4u, 3u}, {0, 3}, {1, 3}, {4, 3}, {6, 3}, {6, 3}, {6, 3}, {7, 4}, {2, 4}, {5, 4}})
        loop.put(code, width);
    Gif looped = decode(GifBuilder(8, 1, {}).image(8, 1, loop.blocks(2)).done());
    ASSERT_TRUE(looped.frames[0]->pixels);
    EXPECT_EQ(Indices(looped.frames[0]->pixels, looped.frames[0]->pixels + 8), (Indices{0, 1, 0, 1, 2, 0, 0, 0}));

    // A minimum code size the table cannot take: no decoding, pixels cleared, the next frame found.
    for (char size : {'\x0C', '\xFF'}) {
        Gif gif = decode(GifBuilder(4, 1, {}).image(4, 1, std::string(1, size) + "\x02\x55\x55" + '\0')
                             .image(4, 1, lzw({3, 3, 3, 3}, 2)).done());
        ASSERT_EQ(gif.frames.size, 2u);
        EXPECT_EQ(Indices(gif.frames[0]->pixels, gif.frames[0]->pixels + 4), Indices(4, 0));
        EXPECT_EQ(wordsOf(gif.getImage(1)), std::vector<std::uint32_t>(4, 0xFF030303));
    }

    // Frames of no area, and a frame larger than the screen, which is kept without pixels.
    Gif odd = decode(GifBuilder(4, 2, {}).image(0, 2, lzw({1, 2}, 2)).image(4, 0, lzw({1, 2}, 2), true)
                         .image(5, 2, lzw(Indices(10, 1), 2)).image(4, 2, lzw(Indices(8, 9), 4)).done());
    ASSERT_EQ(odd.frames.size, 4u);
    for (unsigned int i = 0; i < 3; ++i) EXPECT_EQ(wordsOf(odd.getImage(i)), std::vector<std::uint32_t>(8, 0)) << i;
    EXPECT_EQ(wordsOf(odd.getImage(3)), std::vector<std::uint32_t>(8, 0xFF090909));

    // A header claiming a huge screen and frame on a few bytes of data gets no memory for them.
    for (unsigned int side : {65535u, 20000u}) {
        PeakMemory memory;
        Gif huge = decode(GifBuilder(side, side, {}).image(side, side, lzw(Indices(100, 1), 2)).done());
        ASSERT_EQ(huge.frames.size, 1u);
        EXPECT_FALSE(huge.frames[0]->pixels);
        EXPECT_FALSE(huge.getImage(0).valid());
        EXPECT_LT(memory.peak, 1u << 20) << side;
    }
}

// Streams that make the most work per byte: a code that loops, used again and again, and clear
// codes one after the other at the widest minimum code size. Both must stay cheap per code.
TEST(Gif, HostileStreamsTakeTimeLinearInTheirSize)
{
    CodeWriter loop;  // as in the test above, then the looping code 200000 times
    for (auto [code, width] : {std::pair{4u, 3u}, {0, 3}, {1, 3}, {4, 3}, {6, 3}, {6, 3}, {6, 3}}) loop.put(code, width);
    unsigned int width = 4, limit = 15;
    for (unsigned int i = 0, entry = 8; i < 200000; ++i, entry = std::min(entry + 1, 4100u)) {
        loop.put(6, width);
        if (entry == limit && width < 12) width++, limit = limit * 2 + 1;
    }
    loop.put(5, width);
    CodeWriter clears;
    for (int i = 0; i < 500000; ++i) clears.put(2048, 12);
    clears.put(2049, 12);

    const auto start = std::chrono::steady_clock::now();
    Gif looped = decode(GifBuilder(8, 1, {}).image(8, 1, loop.blocks(2)).done());
    Gif cleared = decode(GifBuilder(8, 1, {}).image(8, 1, clears.blocks(11)).done());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    ASSERT_TRUE(looped.frames[0]->pixels && cleared.frames[0]->pixels);
    EXPECT_EQ(Indices(looped.frames[0]->pixels, looped.frames[0]->pixels + 8), (Indices{0, 1, 0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(looped.frames[0]->codeSize, 12u);
}

TEST(GifInterop, SingleFramesMatchThePeer)
{
    TempDir dir;
    const std::string magick = std::string(Interop::kMagick) + " -size 61x47 -seed 3 plasma:fractal ";
    struct Case { std::string name, options; bool keyed; };
    const std::vector<Case> cases{{"c2", "-colors 2", false},     {"c4", "-colors 4", false},
                                  {"c16", "-colors 16", false},   {"c256", "-colors 256", false},
                                  {"i64", "-colors 64 -interlace GIF", false},
                                  {"t", "-colors 8 -fill white -draw 'rectangle 5,5 30,20' -transparent white", true}};
    for (const Case& c : cases) {
        const std::string path = dir.file(c.name + ".gif");
        ASSERT_TRUE(Interop::run(magick + c.options + " " + path)) << c.name;
        const Interop::PeerImage peer = Interop::readWithOIIO(path);
        Gif gif(path.c_str(), 0);
        ASSERT_EQ(gif.frames.size, 1u);
        EXPECT_EQ(gif.frames[0]->interlacePass, 0u);  // the passes ran to their end
        const std::vector<std::uint32_t> ours = wordsOf(gif.getImage(0));
        ASSERT_EQ(ours.size(), std::size_t(peer.width) * peer.height);
        int transparent = 0;
        for (int i = 0; i < peer.width * peer.height; ++i) {
            const std::uint32_t theirs = peerWord(peer, i % peer.width, i / peer.width);
            transparent += ours[i] >> 24 == 0;
            // A transparent pixel's colour is the peer's own business.
            if (c.keyed && theirs >> 24 == 0) {
                EXPECT_EQ(ours[i] >> 24, 0u) << c.name << " " << i;
            } else {
                ASSERT_EQ(ours[i], theirs) << c.name << " pixel " << i;
            }
        }
        EXPECT_EQ(transparent > 0, c.keyed) << c.name;
        // The memory route reads the same file alike.
        const std::string bytes = contents(path);
        EXPECT_EQ(wordsOf(decode(bytes, 0).getImage(0)), ours);
    }
    const std::string png = dir.file("p.png");
    ASSERT_TRUE(Interop::run(magick + png));
    EXPECT_FALSE(Gif::isGifFile(png.c_str()) || Gif::isGifFile(dir.file("none.gif").c_str()));
    EXPECT_FALSE(Gif(png.c_str(), 1).getImage(0).valid());
}

// Frames compared with the peer's composed pictures, where they agree by construction: our frame
// i lies over the screen from its first pixel on, the peer's at its place; our pixels beyond the
// frame, and those of the transparent colour, show nothing, where the peer shows earlier frames.
TEST(GifInterop, AnimationsMatchThePeerWhereTheDecoderDoesNotCompose)
{
    TempDir dir;
    const std::string magickPath = dir.file("m.gif"), bare = dir.file("bare.gif"), ffPath = dir.file("ff.gif");
    ASSERT_TRUE(Interop::run(std::string(Interop::kMagick) + " -delay 20 -size 40x24 gradient:red-blue -seed 1 plasma:" +
                             " -delay 55 -size 40x24 gradient:green-yellow -colors 32 " + magickPath));
    put(bare, withoutControlBlocks(contents(magickPath)));
    ASSERT_TRUE(Interop::run(std::string(Interop::kFfmpeg) +
                             " -v error -f lavfi -i testsrc=size=48x32:rate=5 -frames:v 4 -f gif " + ffPath));
    struct Case { std::string path; std::vector<unsigned int> delays; };
    for (const Case& c : {Case{magickPath, {20, 20, 55}}, Case{bare, {17, 17, 17}}, Case{ffPath, {20, 20, 20, 20}}}) {
        Gif gif(c.path.c_str(), 1);
        ASSERT_EQ(gif.frames.size, c.delays.size()) << c.path;
        int compared = 0;
        for (unsigned int k = 0; k < gif.frames.size; ++k) {
            const GifFrame& f = *gif.frames[k];
            EXPECT_EQ(f.delay, c.delays[k]) << c.path;
            const Interop::PeerImage peer = Interop::readWithOIIO(c.path, int(k));
            ASSERT_EQ(peer.width, int(gif.width));
            const std::vector<std::uint32_t> ours = wordsOf(gif.getImage(k));
            for (std::size_t i = 0; i < ours.size(); ++i) {
                if (i >= f.pixelCount) {
                    ASSERT_EQ(ours[i], 0u) << c.path << " frame " << k;
                } else if (ours[i] >> 24) {
                    ASSERT_EQ(ours[i], peerWord(peer, int(f.left + i % f.width), int(f.top + i / f.width)))
                        << c.path << " frame " << k << " pixel " << i;
                    ++compared;
                }
            }
        }
        EXPECT_GT(compared, int(gif.width * gif.height)) << c.path;
    }
}

// Truncations and seeded damage of good files: every outcome stays inside the decoder's memory
// (the sanitizers watch) and the time stays linear.
TEST(Gif, DamagedFilesDecodeWithinBounds)
{
    TempDir dir;
    const std::string path = dir.file("a.gif");
    ASSERT_TRUE(Interop::run(std::string(Interop::kMagick) + " -delay 10 -size 30x20 -seed 2 plasma: " +
                             "-interlace GIF -size 30x20 gradient:red-blue -colors 64 " + path));
    std::mt19937 random(20240611);
    Indices noisy(64 * 48);
    for (auto& v : noisy) v = static_cast<unsigned char>(random() % 16);
    const std::vector<std::string> goods{contents(path),
                                         GifBuilder(64, 48, {}).control(5, 3).image(64, 48, lzw(noisy, 4))
                                             .image(64, 48, lzw(noisy, 4, true), true).done()};
    const auto start = std::chrono::steady_clock::now();
    auto exercise = [](const std::string& f) {
        Gif gif = decode(f);
        for (unsigned int i = 0; i <= gif.frames.size; ++i) {
            const Surface s = gif.getImage(i);
            ASSERT_TRUE(!s.valid() || s.getWidth() * s.getHeight() == gif.width * gif.height);
        }
    };
    for (const std::string& good : goods) {
        for (std::size_t n = 0; n < good.size(); n += 1 + n / 64) exercise(good.substr(0, n));
        for (int round = 0; round < 400; ++round) {
            std::string f = good;
            for (int k = 1 + int(random() % 6); k > 0; --k) {
                const std::size_t at = random() % f.size();
                switch (random() % 5) {
                case 0: f[at] = char(f[at] ^ (1 << (random() % 8))); break;
                case 1: f[at] = '\xFF'; break;
                case 2: f[at] = ','; break;
                case 3: f[at] = '!'; break;
                default: f.replace(at, std::min<std::size_t>(8, f.size() - at), std::string(8, char(random()))); break;
                }
            }
            exercise(f);
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}
