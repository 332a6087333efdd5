// convert, reorder and frameToFrame as a caller sees them: each row of reorder, each path of
// frameToFrame, the "Image" timing on every way out, and descriptors that claim more lines
// than the memory holds.

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "ole/image/ImageConvert.h"
#include "ole/image/iImageConvert.h"
#include "ole/platform/plugins/KvDeviceDriverManager.h"
#include "ole/platform/settings/TimedTaskManager.h"
#include "tests/image/ImageTestPictures.h"
#include "tests/support/TestSupport.h"

using namespace Kv::Image;
using namespace ImageTest;

namespace {

bool asserts(const std::string& out, const std::string& condition)
{
    return hasAssertion(out, condition, "ImageConvert.cpp");
}
unsigned int word(const Bytes& b, std::size_t at) { return b[at] | b[at + 1] << 8; }
using Words = std::vector<unsigned int>;
Words words(const Bytes& b, std::size_t at) { return {word(b, at), word(b, at + 2), word(b, at + 4), word(b, at + 6)}; }
Bytes pixel(const Bytes& b, std::size_t at) { return Bytes(b.begin() + at, b.begin() + at + 4); }

// Every begin and end of the timed tasks in order: labels, and "/" for an end.
struct TaskLog final : iTimedTaskService {
    struct Task final : TimedTaskBase {
        std::vector<std::string> events;
        void begin(const char* label) override { events.push_back(label); }
        void end() override { events.push_back("/"); }
    };
    Kv::Ptr<Task> task{new Task};
    std::string names;
    iTimedTaskService* previous = Kv::Platform::setTimedTaskService(this);
    ~TaskLog() { Kv::Platform::setTimedTaskService(previous); }
    Kv::Ptr<TimedTaskBase> getTimedTask(const LightweightString<char>& name) override
    {
        names += name.c_str();
        return task;
    }
};

// A plug-in that notes each offer as "convert 4x4 ARGB>4x4 UYVY; " and accepts it.
struct JournalPlugin final : iImageConvert {
    std::string journal;
    const char* getComponentName() const override { return "journal"; }
    bool convert(const Surface& s, Surface& d) override { return note("convert", s, d); }
    bool resize(const Surface& s, Surface& d) override { return note("resize", s, d); }
    static std::string shape(const Surface& s)
    {
        const std::int32_t f = s.getDataFormat();
        return std::to_string(s.getWidth()) + "x" + std::to_string(s.getHeight()) + " " + std::string(reinterpret_cast<const char*>(&f), 4);
    }
    bool note(const char* what, const Surface& s, const Surface& d)
    {
        journal += std::string(what) + " " + shape(s) + ">" + shape(d) + "; ";
        return true;
    }
};

std::string expect(const std::string& got, const std::string& want)
{
    return check(got == want, "got \"" + got + "\", want \"" + want + "\"");
}

// A picture over `memory` with every field and sample description set; and whether a picture
// carries them all.
Surface described(Bytes& memory, unsigned int w, unsigned int h, Format f, unsigned short bpc, unsigned short stride)
{
    Surface s = over(memory, w, h, f, bpc, stride);
    s.setScanMode(SecondFieldTop);
    s.setVideoFormatUID(77);
    s.setPolarity(InterlacedFieldsInAFrame);
    s.setColorimetry(C709);
    s.setIsVideoGamutScaled(true);
    return s;
}
bool hasMetadata(const Surface& s)
{
    return s.getScanMode() == SecondFieldTop && s.getVideoFormatUID() == 77 && s.getPolarity() == InterlacedFieldsInAFrame &&
           s.getColorimetry() == C709 && s.getIsVideoGamutScaled();
}

}  // namespace

TEST(ImageConvertReorder, SameFormatRows)
{
    Bytes a = pattern(32), b(32, 0);
    Surface src = over(a, 4, 2, ARGB, 8, 16), dst = over(b, 4, 1, ARGB, 8, 16);
    bool ok = false;
    EXPECT_TRUE(asserts(printed([&] { ok = ImageConverter::reorder(src, dst); }), "false"));
    Bytes expected(a.begin(), a.begin() + 16);
    expected.resize(32, 0);
    EXPECT_TRUE(ok && b == expected) << "as many bytes as dst's image size";

    // 48 to 24 and 64 to 32 bits: the high byte of every sample, both sides packed.
    Bytes wide = pattern(24), narrow(12, 0), w64 = pattern(16), n32(8, 0);
    Surface rgb16 = over(wide, 2, 2, RGB, 16, 12), rgb8 = over(narrow, 2, 2, RGB, 8, 6);
    Surface argb64 = over(w64, 2, 1, ARGB, 16, 16), argb32 = over(n32, 2, 1, ARGB, 8, 8);
    EXPECT_TRUE(ImageConverter::reorder(rgb16, rgb8));
    EXPECT_TRUE(ImageConverter::reorder(argb64, argb32));
    for (std::size_t i = 0; i < 12; ++i) EXPECT_EQ(narrow[i], wide[2 * i + 1]);
    EXPECT_EQ(n32[7], w64[15]);
    argb64.setBitsPerComponent(12);
    EXPECT_TRUE(asserts(printed([&] { ImageConverter::reorder(argb64, argb32); }), "src.getBitsPerComponent() == 16"));

    // Other depths: the assertion, nothing written, true.
    Bytes c(32, 9);
    Surface other = over(c, 4, 2, ARGB, 8, 16);
    other.setBitsPerPixel(24);
    EXPECT_TRUE(asserts(printed([&] { ok = ImageConverter::reorder(src, other); }), "false"));
    EXPECT_TRUE(ok && c == Bytes(32, 9));
}

TEST(ImageConvertReorder, RGBIntoARGB)
{
    // Widths 1 (3 bytes and 1 of padding), 4 (no padding) and 37 (runs of 16 and a rest).
    for (unsigned int w : {1u, 4u, 37u}) {
        const unsigned int stride = (3 * w + 3) & ~3u;
        Bytes a = pattern(stride * 2), b(w * 8, 0), c(w * 16, 0), d(w * 8, 0);
        Surface src = over(a, w, 2, RGB, 8, stride), bgr = over(a, w, 2, BGR3, 8, stride);
        Surface dst8 = over(b, w, 2, ARGB, 8, w * 4), dst16 = over(c, w, 2, ARGB, 16, w * 8), dstB = over(d, w, 2, ARGB, 8, w * 4);
        EXPECT_TRUE(ImageConverter::reorder(src, dst8));
        EXPECT_TRUE(ImageConverter::reorder(src, dst16));
        EXPECT_FALSE(ImageConverter::reorder(bgr, dstB)) << "BGR3 is written and still answers false";
        for (unsigned int p = 0; p < 2 * w; ++p) {
            const unsigned char* s = &a[(p / w) * stride + (p % w) * 3];
            EXPECT_EQ(pixel(b, 4 * p), (Bytes{s[0], s[1], s[2], 255})) << w;
            EXPECT_EQ(pixel(d, 4 * p), (Bytes{s[2], s[1], s[0], 255})) << w;
            // Widened without scaling, and swapped.
            EXPECT_EQ(words(c, 8 * p), (Words{s[2], s[1], s[0], 65535}));
        }
    }
    Bytes e(8, 0);
    Surface bgr = over(e, 1, 2, BGR3, 8, 4), deep = over(e, 1, 2, ARGB, 16, 8);
    EXPECT_FALSE(ImageConverter::reorder(bgr, deep));
    EXPECT_EQ(e, Bytes(8, 0)) << "BGR3 at other depths writes nothing";

    // 16-bit sources, lines padded by 2 bytes at an odd width: to 8 bits the high bytes in
    // order, to 16 bits the words swapped.
    Bytes a = pattern(16), b(8, 0), c(16, 0);
    Surface src = over(a, 1, 2, RGB, 16, 8), dst8 = over(b, 1, 2, ARGB, 8, 4), dst16 = over(c, 1, 2, ARGB, 16, 8);
    EXPECT_TRUE(ImageConverter::reorder(src, dst8));
    EXPECT_TRUE(ImageConverter::reorder(src, dst16));
    EXPECT_EQ(b, (Bytes{a[1], a[3], a[5], 255, a[9], a[11], a[13], 255}));
    EXPECT_EQ(words(c, 8), (Words{word(a, 12), word(a, 10), word(a, 8), 65535}));
    // The high-byte view reads a byte further in: a picture ending exactly with its data
    // still gets its last pixel.
    Bytes exact = pattern(12), out(8, 0);
    Surface src2 = over(exact, 2, 1, RGB, 16, 12), dst2 = over(out, 2, 1, ARGB, 8, 8);
    EXPECT_TRUE(ImageConverter::reorder(src2, dst2));
    EXPECT_EQ(pixel(out, 4), (Bytes{exact[7], exact[9], exact[11], 255}));

    // Other depths: the destination takes the source's shape and buffer format, no pixels.
    Bytes f(16, 7);
    Surface ten = over(a, 1, 2, RGB, 10, 8), dst10 = over(f, 2, 2, ARGB, 8, 16);
    bool ok = false;
    EXPECT_TRUE(asserts(printed([&] { ok = ImageConverter::reorder(ten, dst10); }), "false"));
    EXPECT_TRUE(ok && dst10.getDataFormat() == RGB && f == Bytes(16, 7));
    EXPECT_EQ(dst10.getBitsPerComponent() * 100 + dst10.getStride(), 1008u);
}

TEST(ImageConvertReorder, DifferentVerticalOrderFlipsByTheStrides)
{
    // Top-down RGB into a bottom-up 16-bit ARGB picture: 8-bit pixels, last line first.
    const unsigned int w = 19, srcStride = 60, dstStride = 8 * w;
    Bytes a = pattern(2 * srcStride), b(2 * dstStride, 0);
    Surface src = over(a, w, 2, RGB, 8, srcStride), dst = over(b, w, 2, ARGB, 16, dstStride);
    src.setIsTopDown(true);
    EXPECT_TRUE(ImageConverter::reorder(src, dst));
    for (unsigned int y = 0; y < 2; ++y)
        for (unsigned int x = 0; x < w; ++x) {
            const unsigned char* s = &a[y * srcStride + x * 3];
            EXPECT_EQ(pixel(b, (1 - y) * dstStride + x * 4), (Bytes{s[0], s[1], s[2], 255}));
        }
    EXPECT_EQ(Bytes(b.begin() + 4 * w, b.begin() + 8 * w), Bytes(4 * w, 0));

    // A destination stride shorter than its lines: each line written over the one before, as
    // if every pixel of every line had been written in order.
    Bytes s2 = pattern(5 * 12), d2(30, 0), expected(30, 0);
    Surface from = over(s2, 4, 5, RGB, 8, 12), to = over(d2, 4, 5, ARGB, 8, 6);
    from.setIsTopDown(true);
    for (unsigned int y = 0; y < 5; ++y)
        for (unsigned int x = 0, at = 24 - 6 * y; x < 4 && at + 4 * x + 4 <= 30; ++x) {
            std::memcpy(&expected[at + 4 * x], &s2[y * 12 + 3 * x], 3);
            expected[at + 4 * x + 3] = 255;
        }
    EXPECT_TRUE(ImageConverter::reorder(from, to));
    EXPECT_EQ(d2, expected);
}

TEST(ImageConvertReorder, RemainingRowsAndTheirTiming)
{
    TaskLog log;
    Bytes a = pattern(12), b(9, 0), c(12, 3), y(16, 1);
    Surface argb = over(a, 3, 1, ARGB, 8, 12), rgb = over(b, 3, 1, RGB, 8, 9);
    EXPECT_TRUE(ImageConverter::reorder(argb, rgb));
    EXPECT_EQ(b, (Bytes{a[0], a[1], a[2], a[4], a[5], a[6], a[8], a[9], a[10]}));

    // BGRA: true, and the destination stays as it was. YUV pairs are not reorder's.
    Surface bgra = over(a, 3, 1, BGRA, 8, 12), dst = over(c, 3, 1, ARGB, 8, 12), yuy2 = over(y, 4, 2, YUY2, 8, 8);
    EXPECT_TRUE(ImageConverter::reorder(bgra, dst));
    EXPECT_FALSE(ImageConverter::reorder(yuy2, dst));
    EXPECT_FALSE(ImageConverter::reorder(dst, yuy2));
    EXPECT_EQ(c, Bytes(12, 3));
    EXPECT_EQ(y, Bytes(16, 1));

    // Planar 16-bit: the destination's depth picks the output, timed on its own.
    Bytes planes = pattern(12), out(16, 0);
    Surface planar = over(planes, 2, 1, Format(37), 16, 12), wide = over(out, 2, 1, ARGB, 16, 16);
    planar.setBitsPerPixel(48);
    planar.setIsTopDown(true);
    log.task->events.clear();
    log.names.clear();
    EXPECT_TRUE(ImageConverter::reorder(planar, wide));
    EXPECT_EQ(word(out, 0) | word(out, 2) << 16, word(planes, 0) | word(planes, 4) << 16);
    Surface none(3, 1, ARGB, false, 0, 0, 0);
    EXPECT_FALSE(ImageConverter::reorder(argb, none)) << "no memory: false before the timing";
    EXPECT_FALSE(ImageConverter::reorder(yuy2, dst));
    EXPECT_EQ(log.task->events, (std::vector<std::string>{"reorder", "RGBPlanar16ToARGB", "/", "/", "reorder", "/"}));
    EXPECT_EQ(log.names, "ImageImageImage");

    // convert: the sharing shortcut, and an allocation that throws on the way.
    log.task->events.clear();
    Surface same = argb;
    EXPECT_TRUE(ImageConverter::convert(argb, same));
    struct Refusing final : iMemory {
        iMemory* previous = OS()->setMemory(this);
        void* allocate(std::size_t n) override { return n > (1u << 26) ? throw std::bad_alloc() : previous->allocate(n); }
        void release(void* p) override { previous->release(p); }
    } refusing;
    Surface huge(8192, 4096, RGB, false, 0, 0, 0);
    EXPECT_THROW(ImageConverter::convert(argb, huge), std::bad_alloc);
    OS()->setMemory(refusing.previous);
    EXPECT_EQ(log.task->events, (std::vector<std::string>{"convert", "/", "convert", "/"}));
}

TEST(ImageConvertConvert, EqualPicturesShareAndOthersGetMemoryFirst)
{
    Surface src(4, 2, ARGB, true, 0, 0, 0), dst(4, 2, ARGB, false, 0, 0, 0);
    EXPECT_TRUE(ImageConverter::convert(src, dst));
    dst.getDataPtr()[0] = 42;
    EXPECT_EQ(src.getDataPtr()[0], 42) << "the pixels are shared, not copied";

    Bytes a = pattern(32);
    Surface argb = over(a, 4, 2, ARGB, 8, 16), rgb(4, 2, RGB, false, 0, 0, 0);
    ASSERT_TRUE(ImageConverter::convert(argb, rgb) && rgb.getDataPtr());
    EXPECT_EQ(rgb.getDataPtr()[3], a[4]);

    Surface odd(4, 2, hdv1, true, 8, 32, 16), target(4, 2, ARGB, true, 0, 0, 0);
    bool ok = true;
    EXPECT_TRUE(asserts(printed([&] { ok = ImageConverter::convert(odd, target); }), "result") && !ok);
}

// In a process whose only plug-in notes every offer and accepts it.
TEST(ImageConvertConvert, PlugInsGetTheSmallerPictureAndTheirTurnInFrameToFrame)
{
    inFreshProcess([] {
        JournalPlugin plugin;
        KvDeviceDriverManager::theDeviceDriverManager()->registerResource(&plugin);
        Surface small(4, 4, ARGB, true, 0, 0, 0), large(8, 8, UYVY, false, 0, 0, 0), wide(8, 2, ARGB, true, 0, 0, 0);
        Surface argb(4, 4, ARGB, true, 0, 0, 0), uyvy(4, 4, UYVY, true, 0, 0, 0);
        std::string out = check(ImageConverter::convert(small, large) && large.getDataPtr(), "enlarging failed");
        ImageConverter::convert(large, argb);
        ImageConverter::convert(wide, uyvy);  // equal pixel counts: the format first
        out += expect(plugin.journal, "convert 4x4 ARGB>4x4 UYVY; resize 4x4 UYVY>8x8 UYVY; "
                                      "resize 8x8 UYVY>4x4 UYVY; convert 4x4 UYVY>4x4 ARGB; "
                                      "convert 8x2 ARGB>8x2 UYVY; resize 8x2 UYVY>4x4 UYVY; ");

        // BGR3 is reordered and, answering false, offered to the plug-ins as well.
        plugin.journal.clear();
        Surface bgr(2, 1, BGR3, true, 0, 0, 0), fresh(2, 1, ARGB, false, 0, 0, 0);
        ImageConverter::frameToFrame(bgr, fresh, 8);
        // A format with no path of its own: a plug-in's success copies no metadata.
        Surface mpeg(2, 1, hdv1, true, 8, 32, 8), target(2, 1, ARGB, true, 0, 0, 0);
        mpeg.setPolarity(FirstField);
        const bool ok = ImageConverter::frameToFrame(mpeg, target, 8);
        return out + expect(plugin.journal, "convert 2x1 BGR3>2x1 ARGB; convert 2x1 hdv1>2x1 ARGB; ") +
               check(ok && target.getPolarity() != FirstField, "the plug-in path copied metadata");
    });
}

TEST(ImageConvertFrameToFrame, RGBPath)
{
    Surface none, out;
    EXPECT_FALSE(ImageConverter::frameToFrame(none, out, 8));

    // 24 bits: reorder into a destination given memory at the asked depth.
    Bytes a = pattern(16);
    Surface rgb = described(a, 2, 2, RGB, 8, 8), argb(2, 2, ARGB, false, 0, 0, 0);
    EXPECT_TRUE(ImageConverter::frameToFrame(rgb, argb, 8));
    EXPECT_TRUE(argb.getDataPtr()[4] == a[3] && hasMetadata(argb));
    // Format 0 at 24 bits too; nothing converts it: "converted" is printed, metadata copied.
    Surface zero = described(a, 2, 2, Format(0), 8, 8), target(2, 2, ARGB, false, 0, 0, 0);
    zero.setBitsPerPixel(24);
    bool ok = false;
    EXPECT_TRUE(asserts(printed([&] { ok = ImageConverter::frameToFrame(zero, target, 8); }), "converted"));
    EXPECT_TRUE(ok && hasMetadata(target));

    // 32 bits bottom-up: shared, flipped in place, format kept. Then top-down: called ARGB.
    Bytes b = pattern(16);
    Surface up = described(b, 2, 2, RGB, 8, 8), shared;
    up.setBitsPerPixel(32);
    EXPECT_TRUE(ImageConverter::frameToFrame(up, shared, 8));
    EXPECT_TRUE(shared.rep() == up.rep() && shared.getDataFormat() == RGB);
    EXPECT_EQ(b[8], pattern(1)[0]);
    EXPECT_TRUE(ImageConverter::frameToFrame(up, shared, 8));
    EXPECT_EQ(shared.getDataFormat(), ARGB);

    // 48 bits: at equal depth and format the copy path; otherwise reorder at the asked depth.
    Bytes c = pattern(24);
    Surface deep = described(c, 2, 2, RGB, 16, 12), same(1, 1, RGB, false, 0, 0, 0), wide(1, 1, ARGB, false, 0, 0, 0);
    EXPECT_TRUE(ImageConverter::frameToFrame(deep, same, 16));
    EXPECT_EQ(same.rep(), deep.rep());
    EXPECT_TRUE(ImageConverter::frameToFrame(deep, wide, 16));
    EXPECT_EQ(wide.getBitsPerComponent() * 100 + wide.getWidth(), 1602u);
    EXPECT_EQ(word(Bytes(wide.getDataPtr(), wide.getDataPtr() + 2), 0), word(c, 4));
    EXPECT_TRUE(hasMetadata(wide));
}

TEST(ImageConvertFrameToFrame, CopyYUYVPlanarLogAndPlugInPaths)
{
    Bytes a = pattern(16);
    Surface uyvy = described(a, 4, 2, UYVY, 8, 8), yuyv = described(a, 4, 2, YUYV, 8, 8), out, out2;
    EXPECT_TRUE(ImageConverter::frameToFrame(uyvy, out, 8) && out.rep() == uyvy.rep());
    EXPECT_TRUE(ImageConverter::frameToFrame(yuyv, out2, 8));
    EXPECT_EQ(yuyv.getDataFormat(), YUY2) << "the two share one description";

    // Planar at 24 bits a pixel: 8-bit planes, plane 0 red, with the metadata.
    Bytes p = pattern(6);
    Surface planar = described(p, 2, 1, Format(37), 8, 6), argb(1, 1, ARGB, false, 0, 0, 0), yuv(2, 1, UYVY, false, 0, 0, 0);
    planar.setBitsPerPixel(24);
    planar.setIsTopDown(true);
    EXPECT_TRUE(ImageConverter::frameToFrame(planar, argb, 8));
    EXPECT_TRUE(argb.getDataPtr()[2] == p[0] && hasMetadata(argb));
    // Planar of another depth goes through convert, which copies no metadata.
    planar.setBitsPerPixel(32);
    bool ok = false;
    EXPECT_TRUE(asserts(printed([&] { ok = ImageConverter::frameToFrame(planar, yuv, 8); }), "out.getDataFormat() == ARGB"));
    EXPECT_TRUE(ok && yuv.getDataFormat() == ARGB && !hasMetadata(yuv));

    // A format no plug-in takes: the assertion, then the copy path, and true.
    Surface mpeg = described(a, 4, 2, hdv1, 8, 8), copy;
    EXPECT_TRUE(asserts(printed([&] { ok = ImageConverter::frameToFrame(mpeg, copy, 8); }), "false"));
    EXPECT_TRUE(ok && copy.rep() == mpeg.rep());

    // Log: three 10-bit densities a word, at bits 22, 12 and 2, through the table.
    const unsigned int codes[][3] = {{95, 200, 445}, {684, 1023, 94}, {0, 685, 50}};
    Bytes l(12);
    for (int i = 0; i < 3; ++i) {
        const unsigned int w = codes[i][0] << 22 | codes[i][1] << 12 | codes[i][2] << 2 | 3u;
        std::memcpy(&l[4 * i], &w, 4);
    }
    Surface log38 = described(l, 3, 1, Format(38), 10, 12), log39 = described(l, 3, 1, Format(39), 10, 12), fresh, bgra;
    EXPECT_TRUE(ImageConverter::frameToFrame(log38, fresh, 8));
    EXPECT_EQ(Bytes(fresh.getDataPtr(), fresh.getDataPtr() + 12), (Bytes{102, 21, 0, 255, 0, 255, 254, 255, 0, 255, 0, 255}));
    EXPECT_TRUE(fresh.getDataFormat() == ARGB && hasMetadata(fresh));
    EXPECT_TRUE(ImageConverter::frameToFrame(log39, bgra, 8));
    EXPECT_EQ(bgra.getDataFormat(), BGRA);
}

TEST(ImageConvertBounds, ClaimsOfBillionsOfLinesStopAtTheMemory)
{
    const auto start = std::chrono::steady_clock::now();
    Bytes a = pattern(64), b(64, 0), c(64, 0);
    Surface rgb = over(a, 4, 0x7FFFFFFF, RGB, 8, 12), argb = over(b, 4, 0x7FFFFFFF, ARGB, 8, 16);
    Surface same = over(c, 4, 0x7FFFFFFF, ARGB, 8, 16), rgb16 = over(a, 0x7FFFFFFF, 0x7FFFFFFF, RGB, 16, 0);
    EXPECT_TRUE(ImageConverter::reorder(rgb, argb));
    EXPECT_EQ(b[63], 255) << "every pixel in memory is written";
    printed([&] { ImageConverter::reorder(argb, same); });
    ImageConverter::reorder(rgb16, same);
    // Its output's size wraps to 16 bytes in 32 bits: the log path writes those.
    Surface log = over(a, 4, 0x40000001, Format(38), 10, 0), out;
    ImageConverter::frameToFrame(log, out, 8);
    EXPECT_EQ(out.getMemHolder()->getSize(), 16u);

    // The flipping copy over a megabyte whose lines, by their strides, lie a byte apart.
    Bytes big = pattern(1 << 20), into(1 << 20, 0);
    Surface from = over(big, 100000, 0x40000000, RGB, 8, 3), to = over(into, 100000, 1 << 20, ARGB, 8, 1);
    from.setIsTopDown(true);
    EXPECT_TRUE(ImageConverter::reorder(from, to));
    // The last source line with a whole pixel in memory lands lowest, and nothing covers it.
    const std::size_t last = ((1 << 20) - 3) / 3, at = (1 << 20) - 1 - last;
    EXPECT_EQ(pixel(into, at), (Bytes{big[3 * last], big[3 * last + 1], big[3 * last + 2], 255}));
    from.setStride(0);
    EXPECT_TRUE(ImageConverter::reorder(from, to));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}
