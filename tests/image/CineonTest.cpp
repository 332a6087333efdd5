// Cineon and DPX on files the tests make: header geometry, the thinning step, the tables, the
// choice of reader, YUV, the writer and round trips, metadata and reel names, the settings in
// a process of their own, and damaged files.

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <random>

#include "ole/image/cineon.h"
#include "tests/image/CineonFiles.h"
#include "tests/support/TestSupport.h"

extern char** environ;

using namespace Kv::Image;
using namespace CineonFiles;

namespace {

// A request gives the largest size the caller wants; these want the whole picture.
constexpr unsigned int kAny = 1u << 30;
const Core::Data kARGB8(kAny, kAny, ARGB, 8, 0, true), k10Bit(kAny, kAny, Format(35), 10, 0, true),
    kRGB16(kAny, kAny, RGB, 16, 0, true), kRGB8(kAny, kAny, RGB, 8, 0, true), kDescription;

std::uint32_t wordAt(const Surface& s, std::size_t i)
{
    std::uint32_t w = 0xDEADBEEFu;
    if (s.holderBytesFrom(s.getDataPtr()) < (i + 1) * 4) ADD_FAILURE() << "no pixel " << i;
    else std::memcpy(&w, s.getDataPtr() + i * 4, 4);
    return w;
}

Bytes bytesOf(const Surface& s, std::size_t n) { return Bytes(reinterpret_cast<const char*>(s.getDataPtr()), n); }

Surface load(MemoryFiles& fs, const Bytes& file, const Core::Data& format, StillImageMetadata* meta = nullptr,
             const wchar_t* path = L"/scans/reel/f.dpx")
{
    fs.files[path] = file;
    return loadCineonImage(path, format, meta);
}

// A DPX object over bytes, standing at the image data, for the readers called one by one.
struct OpenDpx {
    OpenDpx(MemoryFiles& fs, const Bytes& bytes)
    {
        fs.files[L"/t.dpx"] = bytes;
        dpx.file = OS()->fileSystem()->open(L"/t.dpx", 1, 0, 1, 0);
        dpx.file->readAt(0, &dpx.fileInfo_, 768);
        dpx.needsReorder = dpx.fileInfo_.magic == DPXFile::magic ? 0 : 1;
        dpx.file->read(&dpx.imageInfo_, 640);
        dpx.file->seek(2048);
    }
    DPXFile dpx{DPXFile::FilePtr()};
};

// The log table from its formula, written out afresh.
int logEntry(int code, double black, double white)
{
    if (code < black) return 0;
    if (code >= white) return 255;
    const auto density = [&](double c) { return std::pow(std::pow(10.0, (c - white) / 300.0), 6.0 / 17.0); };
    const double gain = 255.0 / (1.0 - density(black));
    return int(std::lround(density(code) * gain - (gain - 255.0)));
}

int linearEntry(int code) { return int(std::lround(code / 1024.0 * 255.0)); }

// Every code 0 to 1023 once, grey, in one line.
Bytes everyCode(bool big)
{
    std::vector<std::uint32_t> w;
    for (unsigned c = 0; c < 1024; ++c) w.push_back(dpxWord(c, c, c));
    return words(w, big);
}

std::string stdoutOf(const std::function<void()>& f)
{
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}

}  // namespace

// --- Headers -------------------------------------------------------------------------------

TEST(CineonHeaders, SignaturesInEitherOrderOnly)
{
    for (std::uint32_t m : {0x802A5FD7u, 0xD75F2A80u}) EXPECT_TRUE(CINFile::isValidSignature({m}) && !DPXFile::isValidSignature({m}));
    for (std::uint32_t m : {0x53445058u, 0x58504453u}) EXPECT_TRUE(DPXFile::isValidSignature({m}) && !CINFile::isValidSignature({m}));
    for (std::uint32_t m : {0u, 0x802A5FD6u, 0x53445059u}) EXPECT_FALSE(CINFile::isValidSignature({m}) || DPXFile::isValidSignature({m}));
}

TEST(CineonHeaders, StrideAndShifts)
{
    MemoryFiles fs;
    const auto stride = [&](unsigned width, unsigned char descriptor, unsigned char depth, std::uint32_t padding, bool big = false) {
        Dpx h;
        h.big = big, h.width = width, h.descriptor = descriptor, h.bitSize = depth, h.padding = padding;
        return OpenDpx(fs, dpxFile(h, "")).dpx.getStride();
    };
    EXPECT_EQ(stride(10, 50, 10, 3), 43);
    EXPECT_EQ(stride(10, 50, 10, 3, true), 43);
    EXPECT_EQ(stride(10, 50, 10, 4), 40);  // a whole pixel of padding is junk
    EXPECT_EQ(stride(10, 50, 16, 5), 65);
    EXPECT_EQ(stride(10, 50, 8, 3), 30);
    EXPECT_EQ(stride(16385, 50, 10, 0), 4);  // cut to 16 bits
    EXPECT_EQ(stride(1920, 100, 10, 0), 5120);
    EXPECT_EQ(stride(1920, 100, 8, 0), 0);
    for (unsigned char d : {0, 51, 52, 101}) EXPECT_EQ(stride(10, d, 10, 0), 0) << int(d);

    CINFile c{CINFile::FilePtr()};
    c.needsReorder = 1;
    c.header_.imageInfo.channels[0].pixelsPerLine = __builtin_bswap32(100);
    c.header_.dataFormat.lineEndPadding = __builtin_bswap32(3);
    EXPECT_EQ(c.getStride(), 403);
    c.header_.dataFormat.packing = 5;
    EXPECT_EQ(c.getComponentShiftSizes().redShift * 100 + c.getComponentShiftSizes().blueShift, 2202);
    c.header_.dataFormat.packing = 6;
    EXPECT_EQ(c.getComponentShiftSizes().redShift * 100 + c.getComponentShiftSizes().greenShift, 2010);
}

TEST(CineonPixels, StepIsAPowerOfTwoOfTheWidthOnly)
{
    CINFile c{CINFile::FilePtr()};
    const auto step = [&](unsigned width, unsigned target) {
        c.header_.imageInfo.channels[0].pixelsPerLine = width;
        return c.calcPixelStep(target);
    };
    EXPECT_EQ(step(2048, 400), 4u);
    EXPECT_EQ(step(2000, 1500), 1u);
    EXPECT_EQ(step(2001, 10), 1u);
    EXPECT_EQ(step(2048, 0), 2048u);
    EXPECT_EQ(step(1920, 0), 128u);
    EXPECT_EQ(step(0, 0), 2u);  // no pixels: returns rather than halving for ever
}

// --- Pixel transfer ------------------------------------------------------------------------

TEST(CineonPixels, TablesForEveryCode)
{
    MemoryFiles fs;
    for (bool big : {false, true}) {
        Dpx h;
        h.big = big, h.width = 1024, h.height = 1, h.transfer = 3;
        const Surface log = load(fs, dpxFile(h, everyCode(big)), kARGB8);
        h.transfer = 2;
        const Surface lin = load(fs, dpxFile(h, everyCode(big)), kARGB8);
        for (int c = 0; c < 1024; ++c) {
            const std::uint32_t v = std::uint32_t(logEntry(c, 95, 685));
            ASSERT_EQ(wordAt(log, c), 0xFF000000u | v << 16 | v << 8 | v) << "code " << c;
            ASSERT_EQ(int(wordAt(lin, c) & 0xFF), linearEntry(c)) << "code " << c;
        }
        const int codes[] = {95, 100, 128, 200, 300, 400, 445, 500, 600, 684, 685};
        const int values[] = {0, 1, 6, 21, 48, 83, 102, 129, 189, 254, 255};
        for (int i = 0; i < 11; ++i) EXPECT_EQ(int(wordAt(log, codes[i]) & 0xFF), values[i]);
        // A 1024th, not a 1023rd: 2 is still 0, 3 is 1, 512 is 128.
        EXPECT_EQ(wordAt(lin, 2), 0xFF000000u);
        EXPECT_EQ(wordAt(lin, 3), 0xFF010101u);
        EXPECT_EQ(wordAt(lin, 512), 0xFF808080u);
    }
}

// A thumbnail of a 2048-wide scan reads one stored line in four and seeks over the others;
// its pixels are the stored ones at every fourth column.
TEST(CineonPixels, ThumbnailReadsOnlyTheLinesItKeeps)
{
    MemoryFiles fs;
    Dpx h;
    h.width = 2048, h.height = 16;
    std::vector<std::uint32_t> w;
    for (unsigned y = 0; y < 16; ++y)
        for (unsigned x = 0; x < 2048; ++x) w.push_back(dpxWord(y, x & 0x3FF, x >> 10));
    fs.files[L"/logged.dpx"] = dpxFile(h, words(w, false));
    const Surface s = loadCineonImage(L"/logged.dpx", Core::Data(500, 400, Format(35), 10, 0, true), nullptr);
    ASSERT_EQ(s.getWidth(), 512u);
    ASSERT_EQ(s.getHeight(), 4u);
    for (unsigned y = 0; y < 4; ++y)
        for (unsigned x = 0; x < 512; x += 37)
            ASSERT_EQ(wordAt(s, y * 512 + x), 0xC0000000u | dpxWord(4 * y, (4 * x) & 0x3FF, (4 * x) >> 10) >> 2);
    const std::vector<std::string> pixelWork(fs.log.begin() + 6, fs.log.end()), expected = {
        "seek 2048", "read 2048 8192", "seek 34816", "read 34816 8192", "seek 67584", "read 67584 8192",
        "seek 100352", "read 100352 8192", "seek 133120"};
    EXPECT_EQ(pixelWork, expected);
}

TEST(DpxLoadRGB, DecisionByDepthTransferAndCallerFormat)
{
    MemoryFiles fs;
    const Bytes pixels = words(std::vector<std::uint32_t>(16, dpxWord(1023, 512, 0)), false);
    const auto read = [&](unsigned char descriptor, unsigned char transfer, const Core::Data& want) {
        Dpx h;
        h.descriptor = descriptor, h.transfer = transfer;
        return OpenDpx(fs, dpxFile(h, pixels)).dpx.loadRGB(want, CineonFileBase::Linear);
    };
    EXPECT_EQ(wordAt(read(50, 2, k10Bit), 0), 0xC0000000u | 1023u << 20 | 512u << 10);
    EXPECT_EQ(read(51, 2, kRGB16).getDataFormat(), Format(35));
    EXPECT_EQ(wordAt(read(50, 2, kRGB8), 0), 0xFFFF8000u);
    EXPECT_EQ(read(50, 2, Core::Data(kAny, kAny, ARGB, 16, 0, true)).getDataFormat(), ARGB);
    // Logarithmic data always arrives as 8-bit display values, whatever the argument says.
    EXPECT_EQ(wordAt(read(50, 3, k10Bit), 0), 0xFFFF0000u | std::uint32_t(logEntry(512, 95, 685)) << 8);

    Dpx h;
    OpenDpx f(fs, dpxFile(h, pixels));
    Surface none;
    const std::string out = stdoutOf([&] { none = f.dpx.do10BitTo8BitConversion({kAny, kAny}, CineonFileBase::PixelTransfer(5)); });
    EXPECT_NE(out.find("assertion failed encoding == Logarithmic || encoding == Linear at ole/image/"), std::string::npos);
    EXPECT_EQ(wordAt(none, 0), 0xFF000000u);
}

TEST(DpxLoadRGB, PlainReadsAndByteOrder)
{
    MemoryFiles fs;
    Dpx h;
    h.width = 2, h.height = 1, h.bitSize = 8;
    const Surface rgb8 = load(fs, dpxFile(h, "\x01\x02\x03\x04\x05\x06"), kRGB8);
    EXPECT_EQ(bytesOf(rgb8, 6), "\x01\x02\x03\x04\x05\x06");
    EXPECT_TRUE(rgb8.getIsTopDown());
    // Byte-reversed 8-bit data needs nothing done, but is reported.
    h.big = true;
    Surface big8;
    EXPECT_NE(stdoutOf([&] { big8 = load(fs, dpxFile(h, "\x01\x02\x03\x04\x05\x06"), kRGB8); })
                  .find("assertion failed false at ole/image/cineonPixels.cpp"), std::string::npos);
    EXPECT_EQ(bytesOf(big8, 6), "\x01\x02\x03\x04\x05\x06");

    h.bitSize = 16;
    const std::vector<std::uint16_t> s16 = {0x1234, 0xABCD, 0x0102, 0xFF00, 0x8001, 0x7F7F};
    for (bool big : {false, true}) {
        h.big = big;
        const Bytes file = dpxFile(h, samples16(s16, big));
        EXPECT_EQ(std::memcmp(load(fs, file, kRGB16).getDataPtr(), s16.data(), 12), 0) << big;
        EXPECT_EQ(bytesOf(load(fs, file, kRGB8), 6), "\x12\xAB\x01\xFF\x80\x7F") << big;
    }
    // A 16-bit file in host order leaves its depth to the converter.
    h.big = false;
    EXPECT_EQ(OpenDpx(fs, dpxFile(h, samples16(s16, false))).dpx.loadRGB(kRGB8, CineonFileBase::Linear).getBitsPerComponent(), 16);
    // Logarithmic 16-bit: the 10-bit reader takes the line, is reported, and the plain read after
    // it finds nothing left.
    h.transfer = 3;
    OpenDpx log(fs, dpxFile(h, samples16(s16, false)));
    Surface s;
    EXPECT_NE(stdoutOf([&] { s = log.dpx.loadRGB(kRGB16, CineonFileBase::Logarithmic); }).find("assertion failed false"),
              std::string::npos);
    EXPECT_EQ(s.getDataFormat(), RGB);
    EXPECT_EQ(bytesOf(s, 12), Bytes(12, '\0'));
}

// --- YUV -----------------------------------------------------------------------------------

TEST(DpxYUV, TriplesAndColourMaths)
{
    // Word n carries c(3n) in bits 11-2, c(3n+1) in 21-12, c(3n+2) in 31-22, big-endian.
    unsigned int group[4];
    const Bytes bytes = words({dpxWord(2, 1, 0), dpxWord(5, 4, 3), dpxWord(8, 7, 6), dpxWord(11, 10, 9)}, true);
    std::memcpy(group, bytes.data(), 16);
    YUVTriple<unsigned short> t[6];
    YUVTriplesFromYUYVBuffer(group, t);
    const int expected[6][3] = {{1, 2, 0}, {5, 2, 0}, {3, 4, 8}, {7, 4, 8}, {11, 6, 10}, {9, 6, 10}};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(t[i].y * 10000 + t[i].u * 100 + t[i].v, expected[i][0] * 10000 + expected[i][1] * 100 + expected[i][2]);

    // Full-range luma with centred chroma is grey; the sums are clamped at both ends.
    YUVTriple<unsigned short> white{1023, 512, 512}, high{1023, 512, 1023}, low{0, 512, 0};
    EXPECT_EQ(make10BitDword(white), 0x3FFFFFFFu);
    EXPECT_EQ(make10BitDword(high) >> 20, 1023u);
    EXPECT_EQ(make10BitDword(low) >> 20, 0u);
}

TEST(DpxYUV, GroupsFollowOneAnotherAndTheirCountIsCutTo16Bits)
{
    MemoryFiles fs;
    Dpx h;
    h.width = 12, h.height = 2, h.descriptor = 100;
    std::vector<std::uint32_t> w;
    for (unsigned g = 0; g < 16; ++g) w.push_back(dpxWord(100 + 10 * (g / 4), 100 + 10 * (g / 4), 100 + 10 * (g / 4)));
    const Surface s = load(fs, dpxFile(h, words(w, true)), k10Bit);  // big-endian in a little-endian file
    for (unsigned i = 0; i < 24; ++i) {
        const auto v = static_cast<unsigned short>(100 + 10 * (i / 6));
        YUVTriple<unsigned short> p{v, v, v};
        ASSERT_EQ(wordAt(s, i), make10BitDword(p)) << i;
    }
    // 768 x 512 pixels are 65536 groups: none is converted.
    h.width = 768, h.height = 512;
    const Surface cut = load(fs, dpxFile(h, Bytes(65536 * 16, '\x55')), k10Bit);
    EXPECT_EQ(wordAt(cut, 0) | wordAt(cut, 768 * 512 - 1), 0u);
    // Only 10-bit YUV is read.
    h.bitSize = 8, h.width = 12, h.height = 2;
    CapturingLogSink log;
    EXPECT_FALSE(load(fs, dpxFile(h, words(w, true)), k10Bit).valid());
    const auto m = log.messages();
    EXPECT_EQ(std::count(m.begin(), m.end(), std::make_pair(iLogSink::Both, std::string("DPXFile::loadYUV() bit-depth unsupported\n"))), 1);
}

// --- Whole files ---------------------------------------------------------------------------

TEST(CineonFile, LoadsLogarithmicAndRefusesWhatItDoesNotRead)
{
    MemoryFiles fs;
    for (bool big : {false, true}) {
        const Surface s = load(fs, cineonFile(big, 2, 1, 5, words({dpxWord(685, 445, 95), dpxWord(1023, 0, 500)}, big)), k10Bit);
        EXPECT_EQ(s.getDataFormat(), ARGB) << "always 8 bits";
        EXPECT_EQ(wordAt(s, 0), 0xFFFF6600u);
        EXPECT_EQ(wordAt(s, 1), 0xFFFF0081u);
        EXPECT_FALSE(s.getIsTopDown());
        EXPECT_EQ(wordAt(load(fs, cineonFile(big, 1, 1, 6, words({685u << 20}, big)), kARGB8), 0), 0xFFFF0000u);
    }
    const Bytes good = cineonFile(false, 2, 1, 5, Bytes(8, '\0'));
    EXPECT_TRUE(load(fs, good, kARGB8).valid());
    // Width, height, orientation, interleave, packing, depth.
    for (auto [at, size, value] : {std::array{200, 4, 0}, {204, 4, 0}, {192, 1, 2}, {680, 1, 1}, {681, 1, 4}, {198, 1, 8}}) {
        Bytes bad = good;
        bad.replace(std::size_t(at), std::size_t(size), std::size_t(size), char(value));
        EXPECT_FALSE(load(fs, bad, kARGB8).valid()) << at;
    }
    EXPECT_FALSE(load(fs, "XXXX" + good, kARGB8).valid());
    EXPECT_FALSE(loadCineonImage(L"/no/such.dpx", kARGB8, nullptr).valid());
}

TEST(DpxFile, DescriptionOnlyAndReports)
{
    MemoryFiles fs;
    for (auto [descriptor, format] : {std::pair{50, RGB}, {51, Format(38)}, {52, Format(31)}, {100, YUY2}, {103, YUY2}}) {
        Dpx h;
        h.big = descriptor & 1, h.width = 4000, h.height = 3000, h.descriptor = static_cast<unsigned char>(descriptor);
        const Surface s = load(fs, dpxFile(h, ""), kDescription);
        EXPECT_EQ(s.getDataFormat(), format);
        EXPECT_TRUE(s.getWidth() == 4000 && s.getHeight() == 3000 && s.getBitsPerComponent() == 10);
        EXPECT_TRUE(s.getIsTopDown() && !s.valid());
    }
    Dpx h;
    h.descriptor = 7, h.orientation = 1, h.encoding = 1;
    const std::string out = stdoutOf([&] { load(fs, dpxFile(h, ""), kDescription); });
    EXPECT_NE(out.find("assertion failed imageInfo_.orientation == LRTB at ole/image/cineon.cpp:"), std::string::npos);
    EXPECT_NE(out.find("assertion failed imageInfo_.chans_[ 0 ].encoding == Uncompressed at"), std::string::npos);
    EXPECT_NE(out.find("assertion failed false at ole/image/cineon.cpp:"), std::string::npos);
}

// Headers that promise what the file cannot hold: no crash, and no memory for it.
TEST(DpxFile, HostileGeometryIsBoundedByTheFile)
{
    MemoryFiles fs;
    Dpx h;
    h.width = 100000, h.height = 100000;
    EXPECT_FALSE(load(fs, dpxFile(h, Bytes(4096, '\0')), kARGB8).valid());
    h.width = 0xFFFFFFFF, h.height = 0xFFFFFFFF, h.bitSize = 8;
    EXPECT_FALSE(load(fs, dpxFile(h, Bytes(4096, '\0')), kARGB8).valid());
    Bytes beyond = dpxFile(Dpx(), Bytes(64, '\0'));
    put32(beyond, 4, 1u << 30, false);
    EXPECT_FALSE(load(fs, beyond, kARGB8).valid());
    // A line of 16385 words has a stride of 4 bytes: the words past it are not read.
    h = Dpx();
    h.width = 16385, h.height = 2;
    const Surface wide = load(fs, dpxFile(h, words({dpxWord(1023, 1023, 1023), 0}, false)), kARGB8);
    EXPECT_EQ(wordAt(wide, 0), 0xFFFFFFFFu);
    EXPECT_EQ(wordAt(wide, 1), 0u);
    EXPECT_EQ(wordAt(wide, 16385), 0xFF000000u);
    // Cut short: what the file does not reach reads from what the line buffer held.
    h.width = 2;
    const Surface cut = load(fs, dpxFile(h, words({dpxWord(1023, 0, 0), 0, dpxWord(0, 1023, 0)}, false)), kARGB8);
    EXPECT_EQ(wordAt(cut, 2), 0xFF00FF00u);
    EXPECT_EQ(wordAt(cut, 3), 0xFF000000u);
}

// --- Writing -------------------------------------------------------------------------------

TEST(DpxSave, HeaderAndRoundTrip)
{
    TempDir dir;
    const auto path = fromUTF8(dir.file("a.dpx").c_str());
    for (unsigned width : {720u, 721u}) {
        Surface argb(width, 2, ARGB, true, 0, 0, 0);
        argb.setIsTopDown(true);
        for (unsigned i = 0; i < width * 2; ++i) std::memcpy(argb.getDataPtr() + i * 4, &i, 4);
        ASSERT_EQ(saveDPXImage(argb, path, nullptr, nullptr, eMediumVideo, 0.0, 0), 1);
        const Bytes file = contents(dir.file("a.dpx"));
        ASSERT_EQ(file.size(), 2048u + width * 2 * 3);
        EXPECT_EQ(file.substr(0, 12), Bytes("XPDS\0\x08\0\0V1.0", 12));
        EXPECT_EQ(file.substr(800, 6), Bytes("2\x02") + char(width == 720 ? 8 : 6) + Bytes("\x08\x01\0", 3));
        EXPECT_EQ(file.substr(1664, 384), Bytes(384, '\0'));
        {
            MemoryFiles fs;
            EXPECT_EQ(OpenDpx(fs, file).dpx.needsReorder, 0);
        }
        StillImageMetadata meta;
        const Surface back = loadCineonImage(path, kARGB8, &meta);
        // Top line first in the file; the picture made in the caller's format lies bottom up.
        ASSERT_FALSE(back.getIsTopDown());
        for (unsigned i = 0; i < width * 2; ++i) ASSERT_EQ(wordAt(back, (1 - i / width) * width + i % width), i | 0xFF000000u) << i;
        EXPECT_FALSE(meta.keykode.is_valid() || meta.timecode.is_valid());
    }
    // 10-bit words go out two bits up and come back with the top bits set.
    Surface ten(3, 1, Format(35), true, 0, 0, 0);
    const std::uint32_t px[3] = {0x3FFFFFFF, 0x12345678, 0};
    std::memcpy(ten.getDataPtr(), px, 12);
    ASSERT_EQ(saveDPXImage(ten, path, nullptr, nullptr, eMediumVideo, 0.0, 0), 1);
    EXPECT_EQ(contents(dir.file("a.dpx")).size(), 2048u + 12);
    const Surface back = loadCineonImage(path, k10Bit, nullptr);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(wordAt(back, i), (px[i] & 0x3FFFFFFF) | 0xC0000000u);

    const Surface yuv(2, 2, YUY2, true, 8, 0, 0);
    EXPECT_NE(stdoutOf([&] { EXPECT_EQ(saveDPXImage(yuv, path, nullptr, nullptr, eMediumVideo, 0, 0), 0); }).find("assertion failed false"),
              std::string::npos);
    EXPECT_EQ(saveDPXImage(Surface(), path, nullptr, nullptr, eMediumVideo, 0, 0), 0);
    // Cineon is a header pass, and nothing fills the header.
    ASSERT_EQ(saveCineonImage(ten, fromUTF8(dir.file("a.cin").c_str())), 1);
    EXPECT_EQ(contents(dir.file("a.cin")), Bytes(2048, '\0'));
    EXPECT_EQ(saveCineonImage(Surface(), fromUTF8(dir.file("b.cin").c_str())), 0);
}

// --- Metadata ------------------------------------------------------------------------------

TEST(DpxMetadata, LabelsRoundTripAdvancedByFrames)
{
    TempDir dir;
    const auto path = fromUTF8(dir.file("m.dpx").c_str());
    EditLabel tc(getDefaultLabelTypeForMedium(eMediumVideo));
    tc.set_MediumRoll(MediumRollIdent(eMediumVideo, 2));
    ASSERT_TRUE(tc.set_string("01:02:03:04"));
    for (label_t type : {eLabelKeykode35mm4Perf, eLabelKeykode16mm, eLabelKeykode35mm3Perf, eLabelTimecode25}) {
        EditLabel key(type == eLabelTimecode25 ? eLabelKeykode35mm4Perf : type);
        key.set_MediumRoll(MediumRollIdent(eMediumFilm, 1));
        ASSERT_TRUE(key.set_string("KU1234561234+12"));
        key.set_type(type);  // a type that is no key goes out as academy
        ASSERT_EQ(saveDPXImage(Surface(4, 2, RGB, true, 0, 0, 0), path, &tc, &key, eMediumVideo, 0.0, 3), 1);
        const char* format = type == eLabelKeykode16mm ? "16 mm" : type == eLabelKeykode35mm3Perf ? "3-perf" : "academy";
        EXPECT_STREQ(contents(dir.file("m.dpx")).c_str() + 1680, format);

        StillImageMetadata meta;
        meta.frameRate = Kv::eFrameRate48;
        loadCineonImage(path, kARGB8, &meta);
        EXPECT_EQ(meta.frameRate, Kv::eFrameRate48) << "a rate of 0 leaves it";
        EXPECT_EQ(meta.timecode.get_string(0), "01:02:03:07");
        EXPECT_EQ(meta.keykode.get_type(), type == eLabelTimecode25 ? eLabelKeykode35mm4Perf : type);
        if (type == eLabelTimecode25) continue;
        EXPECT_EQ(meta.keykode.get_MediumRoll(), MediumRollIdent(eMediumFilm, 1));
        EXPECT_EQ(meta.keykode.get_string(0), key.get_string(3 * key.cvt().samples_per_frame()));
    }
}

TEST(DpxMetadata, FrameRateAndEmptyFields)
{
    MemoryFiles fs;
    for (bool big : {false, true}) {
        Dpx h;
        h.big = big, h.frameRate = 25.0f;
        StillImageMetadata meta;
        meta.timecode.set_valid(true);
        load(fs, dpxFile(h, Bytes(64, '\0')), kARGB8, &meta);
        EXPECT_EQ(meta.frameRate, Kv::eFrameRate25);
        EXPECT_FALSE(meta.timecode.is_valid() || meta.keykode.is_valid()) << "words of 0";
        h.timecode = 0x10203040u;  // 10:20:30:00, drop-frame flag set
        load(fs, dpxFile(h, Bytes(64, '\0')), kARGB8, &meta);
        EXPECT_TRUE(meta.timecode.is_valid());
        EXPECT_EQ(meta.timecode.get_MediumRoll(), MediumRollIdent(eMediumVideo, 2));
    }
}

TEST(DpxMetadata, ReelNameFromTheFolder)
{
    TempDir dir;
    const Bytes file = dpxFile(Dpx(), Bytes(64, '\0'));
    const auto reel = [&](const std::string& relative) {
        std::filesystem::create_directories(std::filesystem::path(dir.file(relative)).parent_path());
        put(dir.file(relative), file);
        StillImageMetadata meta;
        loadCineonImage(fromUTF8(dir.file(relative).c_str()), kARGB8, &meta);
        return std::string(meta.attributes.get("reel_id").c_str());
    };
    EXPECT_EQ(reel("a/b/c.dpx"), "b");
    EXPECT_EQ(reel("a/dPx/c.dpx"), "a dPx");
    EXPECT_EQ(reel("a/CINEON/c.dpx"), "a CINEON");
    {
        ScopedEnv text("KV_Resources_10135", "Scans");
        EXPECT_EQ(reel("a/scans/c.dpx"), "a scans");
        EXPECT_EQ(reel("a/DPX/c.dpx"), "DPX");
    }
    put(dir.file("c.cin"), cineonFile(false, 1, 1, 5, Bytes(4, '\0')));
    StillImageMetadata meta;
    EXPECT_TRUE(loadCineonImage(fromUTF8(dir.file("c.cin").c_str()), kARGB8, &meta).valid());
    EXPECT_FALSE(meta.attributes.has("reel_id"));

    MemoryFiles fs;
    load(fs, file, kARGB8, &meta, L"c.dpx");
    EXPECT_FALSE(meta.attributes.has("reel_id"));
    EXPECT_NE(stdoutOf([&] { load(fs, file, kARGB8, &meta, L"DPX/c.dpx"); }).find("assertion failed nstrs >= 3 at"), std::string::npos);
    EXPECT_EQ(std::string(meta.attributes.get("reel_id").c_str()), "DPX");
}

// --- Settings, in a process of their own -----------------------------------------------------

namespace {

constexpr const char* kChildSwitch = "KV_TEST_CINEON_CHILD";

// Runs this program again on the child test alone, with `settings` added to its environment.
std::string runChild(const std::vector<std::string>& settings)
{
    std::vector<std::string> env(settings);
    for (char** e = environ; *e; ++e) env.emplace_back(*e);
    env.push_back(std::string(kChildSwitch) + "=1");
    std::vector<char*> envp;
    for (std::string& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    std::string filter = "--gtest_filter=CineonSettingsChild.Scenario";
    char exe[] = "/proc/self/exe";
    char* argv[] = {exe, filter.data(), nullptr};
    int out[2];
    if (pipe(out) != 0) return "no pipe";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    pid_t pid;
    const int spawned = posix_spawn(&pid, exe, &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    std::string output;
    char buffer[4096];
    for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) output.append(buffer, std::size_t(n));
    close(out[0]);
    int status = -1;
    if (spawned == 0) waitpid(pid, &status, 0);
    const bool passed = WIFEXITED(status) && WEXITSTATUS(status) == 0 && output.find("[  PASSED  ] 1 test") != std::string::npos;
    return passed ? "passed" : output;
}

int setting(const char* name, int otherwise)
{
    const char* value = std::getenv(name);
    return value ? std::atoi(value) : otherwise;
}

}  // namespace

TEST(CineonSettingsChild, Scenario)
{
    if (!std::getenv(kChildSwitch)) GTEST_SKIP() << "runs only in a process of its own";
    const int black = setting("KV_dpx_log2lin_black_level", 95), white = setting("KV_dpx_log2lin_white_level", 685);
    const bool forceLinear = setting("KV_dpx_force_linear", 0) != 0, forceLog = setting("KV_dpx_force_log", 0) != 0;
    MemoryFiles fs;
    for (unsigned char transfer : {2, 3}) {
        Dpx h;
        h.width = 1024, h.height = 1, h.transfer = transfer;
        // A 10-bit caller keeps a linear file's bits only where nothing is forced.
        const bool kept = !forceLinear && !forceLog && transfer == 2;
        EXPECT_EQ(OpenDpx(fs, dpxFile(h, everyCode(false))).dpx.loadRGB(k10Bit, CineonFileBase::Linear).getDataFormat(),
                  kept ? Format(35) : ARGB);
        const Surface e = load(fs, dpxFile(h, everyCode(false)), kARGB8);
        const bool log = !forceLinear && (forceLog || transfer == 3);
        for (int c = 0; c < 1024; ++c)
            ASSERT_EQ(int(wordAt(e, c) & 0xFF), log ? logEntry(c, black, white) : linearEntry(c)) << "code " << c;
    }
}

TEST(CineonSettings, ForcedTransfersAndLevelsAreReadAtLoad)
{
    EXPECT_EQ(runChild({"KV_dpx_force_linear=1"}), "passed");
    EXPECT_EQ(runChild({"KV_dpx_force_log=1"}), "passed");
    EXPECT_EQ(runChild({"KV_dpx_force_log=1", "KV_dpx_force_linear=1"}), "passed");
    EXPECT_EQ(runChild({"KV_dpx_log2lin_black_level=0", "KV_dpx_log2lin_white_level=1023"}), "passed");
    EXPECT_EQ(runChild({"KV_dpx_log2lin_black_level=600", "KV_dpx_log2lin_white_level=400"}), "passed");
}

// --- Damaged files ---------------------------------------------------------------------------

TEST(CineonDamage, DamagedFilesLoadOrFailButNeverCrash)
{
    std::vector<Bytes> good;
    for (bool big : {false, true}) {
        Dpx h;
        h.big = big;
        for (unsigned char depth : {8, 10, 16})
            for (unsigned char descriptor : {50, 51, 100})
                for (unsigned char transfer : {2, 3}) {
                    h.bitSize = depth, h.descriptor = descriptor, h.transfer = transfer, h.width = descriptor == 100 ? 12 : 8;
                    good.push_back(dpxFile(h, Bytes(128, '\x5A')));
                }
        good.push_back(cineonFile(big, 8, 2, 5, Bytes(64, '\x11')));
        good.push_back(cineonFile(big, 8, 2, 6, Bytes(64, '\x22')));
    }
    const Core::Data formats[] = {kARGB8, k10Bit, kRGB16, kDescription, Core::Data(3, 3, YUY2, 8, 0, true)};
    MemoryFiles fs;
    CapturingLogSink quiet;
    std::mt19937 random(20240611);
    int loaded = 0;
    stdoutOf([&] {
        for (int round = 0; round < 3000; ++round) {
            Bytes file = good[random() % good.size()];
            for (int i = 0, flips = 1 + int(random() % 6); i < flips; ++i) {
                // Mostly the fields that matter: the first words and the image element.
                const std::size_t at = random() % 2 ? random() % 16 : random() % 2 ? 768 + random() % 48 : random() % file.size();
                file[at] = char(random() % 3 == 0 ? 0xFF : random());
            }
            if (random() % 4 == 0) file.resize(random() % file.size());
            const Surface s = load(fs, file, formats[random() % 5]);
            if (!s.valid()) continue;
            ++loaded;
            EXPECT_LE(std::uint64_t(s.getStride()) * s.getHeight(), s.getMemHolder()->getSize());
        }
    });
    EXPECT_GT(loaded, 100);
}
