// The libswscale plug-in as the plug-in manager loads it from the build tree: conversions
// against a floating-point reference of the BT.601 and BT.709 formulas, ranges, resizing
// against OpenImageIO's, and the pictures it declines.

#include <gtest/gtest.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ole/image/KvImageWrapper.h"
#include "ole/image/iImageConvert.h"
#include "ole/platform/plugins/KvDeviceDriverManager.h"

using namespace Kv::Image;

namespace {

iImageConvert* swscale()
{
    static KvDeviceDriverManager manager(KV_BUILD_PLUGIN_DIR);
    static iImageConvert* const plugin = [] {
        KvDeviceDriverManagerIter it;
        it.init(&manager, 1, 0);
        it.init(iImageConvert::resourceType);
        for (; *it; ++it)
            if (std::string((*it)->getComponentName()) == "swscale") return dynamic_cast<iImageConvert*>(*it);
        return static_cast<iImageConvert*>(nullptr);
    }();
    return plugin;
}

struct Yuv {
    int y, u, v;
};
struct Rgb {
    double r, g, b;  // 0 to 1
};
struct Matrix {
    double kr, kb;  // luma weights of red and blue
};
constexpr Matrix bt601{0.299, 0.114}, bt709{0.2126, 0.0722};

Rgb toRgb(const Yuv& c, const Matrix& m, bool video)
{
    const double y = video ? (c.y - 16) / 219.0 : c.y / 255.0;
    const double pb = (c.u - 128) / (video ? 224.0 : 255.0), pr = (c.v - 128) / (video ? 224.0 : 255.0);
    const double r = y + 2 * (1 - m.kr) * pr, b = y + 2 * (1 - m.kb) * pb;
    return {r, (y - m.kr * r - m.kb * b) / (1 - m.kr - m.kb), b};
}

Yuv toYuv(const Rgb& c, const Matrix& m, bool video)
{
    const double y = m.kr * c.r + (1 - m.kr - m.kb) * c.g + m.kb * c.b;
    const double pb = (c.b - y) / (2 * (1 - m.kb)), pr = (c.r - y) / (2 * (1 - m.kr));
    const double ys = video ? 219 : 255, cs = video ? 224 : 255;
    return {int(std::lround((video ? 16 : 0) + ys * y)), int(std::lround(128 + cs * pb)), int(std::lround(128 + cs * pr))};
}

int code8(double v) { return std::clamp(int(std::lround(v * 255)), 0, 255); }

// Any YUV layout the plug-in reads, from a function of the position; 4:2:0 chroma is taken at
// the top-left pixel of each 2x2.
Surface makeYuv(Format format, unsigned w, unsigned h, const std::function<Yuv(unsigned, unsigned)>& at)
{
    Surface s(w, h, format, true, 8, 0, 0);
    unsigned char* p = s.getDataPtr();
    unsigned char* chroma = p + w * h;
    for (unsigned y = 0; y < h; ++y)
        for (unsigned x = 0; x < w; x += 2) {
            const Yuv a = at(x, y), b = at(x + 1, y);
            unsigned char* q = p + y * s.getStride() + x * 2;
            if (format == UYVY) q[0] = a.u, q[1] = a.y, q[2] = a.v, q[3] = b.y;
            else if (format == YVYU) q[0] = a.y, q[1] = a.v, q[2] = b.y, q[3] = a.u;
            else if (format == YUY2 || format == YUYV) q[0] = a.y, q[1] = a.u, q[2] = b.y, q[3] = a.v;
            else {
                p[y * w + x] = a.y, p[y * w + x + 1] = b.y;
                if (y % 2) continue;
                if (format == NV12) chroma[y / 2 * w + x] = a.u, chroma[y / 2 * w + x + 1] = a.v;
                else chroma[y / 2 * (w / 2) + x / 2] = a.v, chroma[(w / 2) * (h / 2) + y / 2 * (w / 2) + x / 2] = a.u;
            }
        }
    return s;
}

Yuv yuvAt(const Surface& s, unsigned x, unsigned y)
{
    const unsigned char* p = s.getDataPtr();
    const unsigned w = s.getWidth(), h = s.getHeight(), c = y / 2 * (w / 2) + x / 2;
    const unsigned char* q = p + y * s.getStride() + (x & ~1u) * 2;
    switch (s.getDataFormat()) {
    case UYVY: return {q[1 + (x & 1) * 2], q[0], q[2]};
    case YVYU: return {q[(x & 1) * 2], q[3], q[1]};
    case NV12: return {p[y * w + x], p[w * h + y / 2 * w + (x & ~1u)], p[w * h + y / 2 * w + (x | 1u)]};
    case YV12: return {p[y * w + x], p[w * h + (w / 2) * (h / 2) + c], p[w * h + c]};
    default: return {q[(x & 1) * 2], q[1], q[3]};  // YUY2
    }
}

// An RGB pixel of any layout the plug-in writes. 8-bit ARGB and RGB are blue first, 16-bit
// ARGB red first, 48-bit RGB blue first, BGR3 the reverse of RGB.
Rgb rgbAt(const Surface& s, unsigned x, unsigned y)
{
    const unsigned char* q = s.getDataPtr() + y * s.getStride() + x * (s.getBitsPerPixel() / 8);
    auto word = [q](int i) { return (q[2 * i] | q[2 * i + 1] << 8) / 65535.0; };
    const int format = s.getDataFormat();
    if (format == 35) {
        std::uint32_t w;
        std::memcpy(&w, q, 4);
        return {(w >> 20 & 1023) / 1023.0, (w >> 10 & 1023) / 1023.0, (w & 1023) / 1023.0};
    }
    if (s.getBitsPerComponent() == 16)
        return format == RGB ? Rgb{word(2), word(1), word(0)} : Rgb{word(0), word(1), word(2)};
    if (format == BGRA) return {q[1] / 255.0, q[2] / 255.0, q[3] / 255.0};
    if (format == BGR3) return {q[0] / 255.0, q[1] / 255.0, q[2] / 255.0};
    return {q[2] / 255.0, q[1] / 255.0, q[0] / 255.0};
}

// Flat 32x32 blocks, compared well inside each block where no chroma filter reaches a
// neighbour: the largest difference there.
constexpr unsigned kBlock = 32, kWidth = 8 * kBlock, kHeight = 4 * kBlock;
template <class Difference>
int worstInside(Difference difference)
{
    int worst = 0;
    for (unsigned y = 0; y < kHeight; ++y)
        for (unsigned x = 0; x < kWidth; ++x)
            if (x % kBlock >= 10 && x % kBlock < 22 && y % kBlock >= 10 && y % kBlock < 22) worst = std::max(worst, difference(x, y));
    return worst;
}

int distance(const Rgb& a, const Rgb& b)
{
    return std::max({std::abs(code8(a.r) - code8(b.r)), std::abs(code8(a.g) - code8(b.g)), std::abs(code8(a.b) - code8(b.b))});
}
int distance(const Yuv& a, const Yuv& b) { return std::max({std::abs(a.y - b.y), std::abs(a.u - b.u), std::abs(a.v - b.v)}); }

Surface described(Surface s, Colorimetry colorimetry, bool video)
{
    s.setColorimetry(colorimetry);
    s.setIsVideoGamutScaled(video);
    return s;
}

}  // namespace

// Each YUV layout, with either matrix and either range, against the formulas: into every RGB
// layout within one 8-bit code whatever the depth, from 8-bit ARGB within one code, and back
// from ARGB to where it started within two.
TEST(SwscalePlugin, FollowsTheBt601And709FormulasAndRoundTrips)
{
    ASSERT_NE(swscale(), nullptr);
    std::mt19937 random(5);
    int n = 0;
    for (Format format : {UYVY, YUY2, YVYU, YUYV, NV12, YV12}) {
        const bool video = n % 2 == 0;
        const Colorimetry colorimetry = ++n % 3 ? C709 : C601;
        const Matrix& m = colorimetry == C601 ? bt601 : bt709;
        std::vector<Rgb> colours(32);  // inside the RGB cube, so that nothing clips on the way back
        for (Rgb& c : colours) c = {0.02 + random() % 97 / 100.0, 0.02 + random() % 97 / 100.0, 0.02 + random() % 97 / 100.0};
        auto colour = [&](unsigned x, unsigned y) { return colours[y / kBlock * 8 + x / kBlock]; };
        auto yuv = [&](unsigned x, unsigned y) { return toYuv(colour(x, y), m, video); };
        const Surface src = described(makeYuv(format, kWidth, kHeight, yuv), colorimetry, video);
        for (auto [out, bpc] : {std::pair{ARGB, 8}, {BGRA, 8}, {RGB, 8}, {BGR3, 8}, {ARGB, 16}, {RGB, 16}, {Format(35), 10}}) {
            Surface dst(kWidth, kHeight, out, true, static_cast<unsigned short>(bpc), 0, 0);
            ASSERT_TRUE(swscale()->convert(src, dst)) << format << " to " << out << "/" << bpc;
            EXPECT_LE(worstInside([&](unsigned x, unsigned y) { return distance(rgbAt(dst, x, y), toRgb(yuv(x, y), m, video)); }), 1)
                << format << " to " << out << "/" << bpc << (video ? " video" : " full");
        }
        Surface argb(kWidth, kHeight, ARGB, true, 8, 0, 0), fromArgb = described(Surface(kWidth, kHeight, format, true, 8, 0, 0), colorimetry, video);
        for (unsigned i = 0; i < kWidth * kHeight; ++i) {
            const Rgb c = colour(i % kWidth, i / kWidth);
            const unsigned char bgra[4] = {static_cast<unsigned char>(code8(c.b)), static_cast<unsigned char>(code8(c.g)),
                                           static_cast<unsigned char>(code8(c.r)), 255};
            std::memcpy(argb.getDataPtr() + 4 * i, bgra, 4);
        }
        ASSERT_TRUE(swscale()->convert(argb, fromArgb));
        EXPECT_LE(worstInside([&](unsigned x, unsigned y) { return distance(yuvAt(fromArgb, x, y), toYuv(rgbAt(argb, x, y), m, video)); }), 1)
            << "ARGB to " << format;
        Surface back = described(Surface(kWidth, kHeight, format, true, 8, 0, 0), colorimetry, video);
        ASSERT_TRUE(swscale()->convert(src, argb) && swscale()->convert(argb, back));
        EXPECT_LE(worstInside([&](unsigned x, unsigned y) { return distance(yuvAt(back, x, y), yuv(x, y)); }), 2)
            << format << " through ARGB";
    }
}

// Same-size 4:2:2 to 8-bit RGB, on noise: every pixel, the last pair of each line included,
// against the formulas with chroma sited on the even pixel and the odd pixel between its two
// neighbours.
TEST(SwscalePlugin, SamplesChromaBetweenPairsOn422ToRgb)
{
    ASSERT_NE(swscale(), nullptr);
    std::mt19937 random(9);
    constexpr unsigned w = 70, h = 5;
    std::vector<Yuv> noise(w * h);
    for (Yuv& c : noise) c = {int(random() % 256), int(random() % 256), int(random() % 256)};
    for (Format format : {UYVY, YUY2, YVYU}) {
        const bool video = format != YUY2;
        const Surface src = described(makeYuv(format, w, h, [&](unsigned x, unsigned y) { return noise[y * w + x]; }), C709, video);
        for (Format out : {ARGB, BGRA, RGB, BGR3}) {
            Surface dst(w, h, out, true, 8, 0, 0);
            ASSERT_TRUE(swscale()->convert(src, dst));
            for (unsigned y = 0; y < h; ++y)
                for (unsigned x = 0; x < w; ++x) {
                    // The formulas are linear, so the mean of two chroma samples gives the
                    // mean of their colours.
                    const Yuv c = yuvAt(src, x, y), next = x % 2 && x + 1 < w ? yuvAt(src, x + 1, y) : c;
                    const Rgb a = toRgb(c, bt709, video), b = toRgb({c.y, next.u, next.v}, bt709, video);
                    const Rgb expected{(a.r + b.r) / 2, (a.g + b.g) / 2, (a.b + b.b) / 2};
                    ASSERT_LE(distance(rgbAt(dst, x, y), expected), 1) << format << " to " << out << " at " << x << "," << y;
                }
        }
    }
}

// Unknown colorimetry is BT.601 below 720 lines and BT.709 from there. The gamut flag chooses
// video or full range, for YUV and for RGB alike.
TEST(SwscalePlugin, ChoosesTheMatrixAndRangeFromTheDescriptors)
{
    ASSERT_NE(swscale(), nullptr);
    const Yuv red{81, 90, 240};  // saturated: the two matrices part by many codes here
    ASSERT_GT(std::abs(code8(toRgb(red, bt601, true).g) - code8(toRgb(red, bt709, true).g)), 10);
    for (auto [colorimetry, lines, matrix] : {std::tuple{C601, 720u, bt601}, {C709, 576u, bt709},
                                              {UnknownColorimetry, 576u, bt601}, {InvalidColorimetry, 718u, bt601},
                                              {UnknownColorimetry, 720u, bt709}, {InvalidColorimetry, 1080u, bt709}}) {
        const Surface src = described(makeYuv(UYVY, 64, lines, [&](unsigned, unsigned) { return red; }), colorimetry, true);
        Surface dst(64, lines, ARGB, true, 8, 0, 0);
        ASSERT_TRUE(swscale()->convert(src, dst));
        EXPECT_NEAR(code8(rgbAt(dst, 32, 9).g), code8(toRgb(red, matrix, true).g), 1) << colorimetry << ", " << lines << " lines";
    }
    // Standard definition to high definition changes the matrix on the way.
    const Surface sd = described(makeYuv(UYVY, 64, 32, [&](unsigned, unsigned) { return red; }), C601, true);
    Surface hd = described(Surface(64, 32, UYVY, true, 8, 0, 0), C709, true);
    ASSERT_TRUE(swscale()->convert(sd, hd));
    EXPECT_LE(distance(yuvAt(hd, 32, 16), toYuv(toRgb(red, bt601, true), bt709, true)), 1);

    auto grey = [](int code, bool srcVideo, bool dstVideo) {
        const Surface src = described(makeYuv(UYVY, 16, 8, [&](unsigned, unsigned) { return Yuv{code, 128, 128}; }), C709, srcVideo);
        Surface dst = described(Surface(16, 8, ARGB, true, 8, 0, 0), C709, dstVideo);
        EXPECT_TRUE(swscale()->convert(src, dst));
        return int(dst.getDataPtr()[4 * 8 + 1]);
    };
    EXPECT_EQ(grey(16, true, false), 0);
    EXPECT_EQ(grey(235, true, false), 255);
    EXPECT_EQ(grey(16, false, false), 16);
    EXPECT_EQ(grey(16, true, true), 16);  // video-range RGB keeps black at 16 ...
    EXPECT_EQ(grey(235, true, true), 235);  // ... and white at 235
    EXPECT_EQ(grey(0, false, true), 16);

    // RGB pictures that differ in range only: the levels are mapped and alpha is left alone.
    Surface full(4, 2, ARGB, true, 8, 0, 0), video = described(Surface(4, 2, ARGB, true, 8, 0, 0), C709, true);
    std::memcpy(full.getDataPtr(), "\xFF\x80\x00\x4D", 4);  // blue 255, green 128, red 0, alpha 77
    ASSERT_TRUE(swscale()->convert(full, video));
    EXPECT_EQ(std::memcmp(video.getDataPtr(), "\xEB\x7E\x10\x4D", 4), 0);
    ASSERT_TRUE(swscale()->convert(video, full));
    EXPECT_EQ(std::memcmp(full.getDataPtr(), "\xFF\x80\x00\x4D", 4), 0);
}

// A flat picture stays flat, exactly, whichever way its size changes. A smooth one agrees with
// OpenImageIO's lanczos3, the same windowed sinc: a mean difference below a quarter of a code,
// and at most 2 codes away from the border (measured: 0.05 and 1).
TEST(SwscalePlugin, ResizesWithALanczosFilter)
{
    ASSERT_NE(swscale(), nullptr);
    for (auto [format, w, h, dw, dh] : {std::tuple{ARGB, 320u, 180u, 200u, 112u}, {ARGB, 100u, 60u, 321u, 177u},
                                        {UYVY, 360u, 240u, 720u, 486u}, {NV12, 320u, 240u, 96u, 54u}, {RGB, 64u, 64u, 48u, 30u}}) {
        const bool yuv = format == UYVY || format == NV12;
        Surface src(w, h, format, true, 8, 0, 0), dst(dw, dh, format, true, 8, 0, 0);
        if (yuv) src = makeYuv(format, w, h, [](unsigned, unsigned) { return Yuv{140, 70, 190}; });
        for (unsigned i = 0; !yuv && i < w * h; ++i) std::memcpy(src.getDataPtr() + i * (format == ARGB ? 4 : 3), "\x1F\x5A\xC8\xFF", format == ARGB ? 4 : 3);
        ASSERT_TRUE(swscale()->resize(src, dst)) << format;
        int worst = 0;
        for (unsigned y = 0; y < dh; ++y)
            for (unsigned x = 0; x < dw; ++x)
                worst = std::max(worst, yuv ? distance(yuvAt(dst, x, y), Yuv{140, 70, 190})
                                            : distance(rgbAt(dst, x, y), Rgb{200 / 255.0, 90 / 255.0, 31 / 255.0}));
        EXPECT_EQ(worst, 0) << format << " " << w << "x" << h << " to " << dw << "x" << dh;
    }

    const int w = 256, h = 192, dw = 160, dh = 120;
    Surface src(w, h, ARGB, true, 8, 0, 0), dst(dw, dh, ARGB, true, 8, 0, 0);
    std::vector<unsigned char> rgba(std::size_t(w) * h * 4);
    for (int i = 0; i < w * h; ++i) {
        const int x = i % w, y = i / w;
        unsigned char* q = &rgba[std::size_t(i) * 4];
        q[0] = static_cast<unsigned char>(128 + 100 * std::sin(x / 9.0) * std::cos(y / 13.0));
        q[1] = static_cast<unsigned char>(x * 255 / w);
        q[2] = static_cast<unsigned char>(128 + 90 * std::sin((x + y) / 17.0));
        q[3] = 255;
        const unsigned char bgra[4] = {q[2], q[1], q[0], 255};
        std::memcpy(src.getDataPtr() + std::size_t(i) * 4, bgra, 4);
    }
    ASSERT_TRUE(swscale()->resize(src, dst));
    OIIO::ImageBuf in(OIIO::ImageSpec(w, h, 4, OIIO::TypeDesc::UINT8), rgba.data());
    OIIO::ImageBuf out(OIIO::ImageSpec(dw, dh, 4, OIIO::TypeDesc::UINT8));
    ASSERT_TRUE(OIIO::ImageBufAlgo::resize(out, in, "lanczos3"));
    std::vector<unsigned char> peer(std::size_t(dw) * dh * 4);
    ASSERT_TRUE(out.get_pixels(out.roi(), OIIO::TypeDesc::UINT8, peer.data()));
    double sum = 0;
    int worst = 0, count = 0;
    for (int y = 3; y < dh - 3; ++y)
        for (int x = 3; x < dw - 3; ++x)
            for (int c = 0; c < 3; ++c) {
                const int d = std::abs(dst.getDataPtr()[(y * dw + x) * 4 + 2 - c] - peer[std::size_t(y * dw + x) * 4 + c]);
                sum += d, worst = std::max(worst, d), ++count;
            }
    EXPECT_LT(sum / count, 0.25);
    EXPECT_LE(worst, 2);
}

// What it cannot do it declines untouched. What it does write stays inside the picture's own
// memory, even for a view whose lines run on into a larger picture, and comes out turned over
// when the two pictures disagree about which line is first.
TEST(SwscalePlugin, DeclinesWhatItCannotDoAndWritesOnlyItsOwnPixels)
{
    ASSERT_NE(swscale(), nullptr);
    const Surface argb(16, 8, ARGB, true, 8, 0, 0);
    for (Surface dst : {Surface(16, 8, M101, true, 8, 0, 0), Surface(16, 8, BGRA, true, 16, 0, 0),
                        Surface(15, 8, UYVY, true, 8, 0, 0), Surface(16, 7, NV12, true, 8, 0, 0), Surface()}) {
        if (dst.getDataPtr()) std::memset(dst.getDataPtr(), 0x5A, dst.getImageSize());
        EXPECT_FALSE(swscale()->convert(argb, dst)) << dst.getDataFormat();
        if (dst.getDataPtr()) {
            EXPECT_EQ(dst.getDataPtr()[dst.getImageSize() - 1], 0x5A);
        }
    }
    std::vector<unsigned char> small(16 * 4 * 5, 0x5A);  // five of the eight lines claimed
    Surface shortOfMemory(16, 8, ARGB, false, 8, 0, 0);
    shortOfMemory.setDataPtr(small.data(), int(small.size()));
    EXPECT_FALSE(swscale()->convert(argb, shortOfMemory));
    EXPECT_EQ(small.back(), 0x5A);

    Surface whole(64, 32, ARGB, true, 8, 0, 0);
    std::memset(whole.getDataPtr(), 0x11, whole.getImageSize());
    Surface view = makeSubImageWrapper({whole, TopDownRect(5, 3, 37, 19)});
    Surface src = described(makeYuv(UYVY, 32, 16, [](unsigned, unsigned y) { return Yuv{y < 8 ? 235 : 16, 128, 128}; }), C601, true);
    src.setIsTopDown(true);
    ASSERT_TRUE(swscale()->convert(src, view));
    for (unsigned y = 0; y < 32; ++y)
        for (unsigned x = 0; x < 64; ++x) {
            const bool in = x >= 5 && x < 37 && y >= 3 && y < 19;
            const unsigned char expected = !in ? 0x11 : y - 3 < 8 ? 0 : 255;  // the view is bottom-up
            ASSERT_EQ(whole.getDataPtr()[y * 256 + x * 4 + 1], expected) << x << "," << y;
        }
}

// Conversions of different shapes on several threads at once give what one thread gives.
TEST(SwscalePlugin, ConcurrentConversionsAgreeWithSerialOnes)
{
    ASSERT_NE(swscale(), nullptr);
    auto run = [](unsigned seed) {
        std::mt19937 random(seed);
        const Surface src = makeYuv(seed % 2 ? UYVY : NV12, 64 + 16 * (seed % 3), 48, [&](unsigned, unsigned) {
            return Yuv{int(random() % 256), int(random() % 256), int(random() % 256)};
        });
        Surface dst(40 + seed % 5 * 8, 30, ARGB, true, 8, 0, 0);
        swscale()->resize(src, dst);
        return std::vector<unsigned char>(dst.getDataPtr(), dst.getDataPtr() + dst.getImageSize());
    };
    std::vector<std::vector<unsigned char>> serial, parallel(8);
    for (unsigned seed = 0; seed < 8; ++seed) serial.push_back(run(seed));
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (unsigned round = 0; round < 3; ++round)
                for (unsigned seed = t; seed < 8; seed += 4) parallel[seed] = run(seed);
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(parallel, serial);
}
