#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ole/image/KvImageDefs.h"
#include "ole/platform/settings/KvResources.h"
#include "tests/image/ImageTestPictures.h"

using namespace Kv::Image;
using ImageTest::printed;

namespace {

// Codes written out from their characters, independently of the library's enumeration.
Format code(const char (&text)[5])
{
    std::uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = (v << 8) | std::uint8_t(text[i]);
    return Format(std::int32_t(v));
}

const std::vector<std::string> kUncompressedCodes = {
    "DPX\x0A", "XYZ\x0C", "DIB ", "RAW ", "P010", "W010", "P210", "W210", "Y210", "v210", "W410",
    "Y410", "I420", "M101", "m101", "W011", "W211", "Y211", "W411", "NV21", "IMC1", "M102", "m102",
    "W012", "W212", "W412", "NV12", "YV12", "nv12", "I422", "IMC2", "YUY2", "M103", "IMC3", "BGR3",
    "M104", "NV24", "YV24", "I444", "IMC4", "BGR4", "R555", "R565", "P016", "W016", "P216", "W216",
    "Y216", "W416", "Y416", "YV16", "W009", "W209", "W409", "YVU9", "YUV9", "BGRA", "VUYA", " RGB",
    "ARGB", "R32C", "R24C", "B32F", "Y32F", "Y41P", "EXTP", "CLJR", "YVYU", "AYUV", "IYUV", "YUYV",
    "VYUY", "UYVY", "argb", "YuYv", "UyVy", "2vuy"};
const std::set<int> kUncompressedNumbers = {0, 31, 35, 37, 38, 39, 40, 41, 68, 69};

Format fromString(const std::string& s)
{
    char text[5] = {};
    std::memcpy(text, s.data(), 4);
    return code(text);
}

// Every listed code with its neighbours, and the small integers.
std::vector<Format> probes()
{
    std::vector<Format> out;
    for (const std::string& s : kUncompressedCodes)
        for (int d = -1; d <= 1; ++d) out.push_back(Format(fromString(s) + d));
    for (int n = -3; n < 1300; ++n) out.push_back(Format(n));
    return out;
}

}  // namespace

TEST(KvImageDefs, NamedCodesHaveTheirCharactersFirstByteLowest)
{
    EXPECT_EQ(ARGB, 0x42475241);
    EXPECT_EQ(RGB, 0x42475220);
    EXPECT_EQ(DPX10, 0x0A585044);
    EXPECT_EQ(_2vuy, code("2vuy"));
    EXPECT_EQ(sizeof(Format), 4u);
}

TEST(KvImageDefs, CompressedIsEverythingButTheUncompressedList)
{
    std::set<std::int32_t> uncompressed(kUncompressedNumbers.begin(), kUncompressedNumbers.end());
    for (const std::string& s : kUncompressedCodes) uncompressed.insert(fromString(s));
    for (Format f : probes()) EXPECT_EQ(isCompressedFormat(f), !uncompressed.count(f)) << f;
    EXPECT_TRUE(isCompressedFormat(Format(36)));
    EXPECT_TRUE(isCompressedFormat(InvalidFormat));
}

TEST(KvImageDefs, BitsPerComponentAndPerPixel)
{
    const std::map<std::int32_t, int> bpc = {{35, 10}, {code("DPX\x0A"), 10}, {code("XYZ\x0C"), 10},
                                             {code("v210"), 10}, {36, 16}, {68, 16}, {69, 16},
                                             {code("R555"), 5}, {code("R565"), 5}};
    for (Format f : probes()) {
        auto it = bpc.find(f);
        EXPECT_EQ(getBitsPerComponentFromFormat(f), it == bpc.end() ? 8 : it->second) << f;
    }

    // format -> bits per pixel for bpc 8, 10, 16 and another value.
    struct Row { Format f; int b8, b10, b16, other; };
    const std::vector<Row> rows = {
        {code("NV12"), 12, 12, 12, 12}, {code("YV12"), 12, 12, 12, 12},
        {code("UYVY"), 16, 20, 32, 16}, {code("YUY2"), 16, 20, 32, 16},
        {code("M101"), 16, 20, 16, 16}, {code("M102"), 16, 20, 16, 16},
        {code("M103"), 24, 28, 24, 24}, {code("M104"), 24, 28, 24, 24},
        {code(" RGB"), 24, 24, 48, 24}, {code("BGR3"), 24, 24, 48, 24},
        {code("ARGB"), 32, 32, 64, 32}, {code("BGRA"), 32, 32, 64, 32},
        {code("HIMX"), 8, 8, 8, 8}, {Format(31), 32, 32, 32, 32}, {Format(35), 32, 32, 32, 32},
        {Format(38), 32, 32, 32, 32}, {Format(39), 32, 32, 32, 32}, {Format(36), 64, 64, 64, 64},
        {Format(37), 64, 64, 64, 64}, {Format(68), 32, 32, 32, 32}, {Format(69), 48, 48, 48, 48},
        {InvalidFormat, 16, 16, 16, 16}, {code("YVYU"), 16, 16, 16, 16}, {Format(0), 16, 16, 16, 16}};
    CapturingLogSink quiet;
    printed([&] {
        for (const Row& r : rows)
            EXPECT_EQ((std::vector<int>{getBitsPerPixel(r.f, 8), getBitsPerPixel(r.f, 10), getBitsPerPixel(r.f, 16),
                                        getBitsPerPixel(r.f, 12)}),
                      (std::vector<int>{r.b8, r.b10, r.b16, r.other}))
                << r.f;
    });
}

TEST(KvImageDefs, BitsPerPixelReportsWhatItDoesNotExpect)
{
    CapturingLogSink log;
    const std::string out = printed([] {
        EXPECT_EQ(getBitsPerPixel(UYVY, 12), 16);
        EXPECT_EQ(getBitsPerPixel(InvalidFormat, 8), 16);
        EXPECT_EQ(getBitsPerPixel(Format(35), 8), 32);
        EXPECT_EQ(getBitsPerPixel(Format(36), 16), 64);
        EXPECT_EQ(getBitsPerPixel(Format(37), 10), 64);
    });
    // Two prints, each naming its condition and its place.
    const std::string first = "assertion failed bitsPerComponent == 10 at ole/image/KvImageDefs.cpp:";
    const std::string second = "assertion failed bitsPerComponent == 16 at ole/image/KvImageDefs.cpp:";
    EXPECT_EQ(out.rfind(first, 0), 0u) << out;
    EXPECT_NE(out.find("\n" + second), std::string::npos) << out;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2) << out;
    // Only the UYVY case logs.
    EXPECT_EQ(log.messages(), (std::vector<std::pair<iLogSink::Channel, std::string>>{
                                  {iLogSink::Both, "UNEXPECTED BPP 12\n"}}));
}

TEST(KvImageDefs, DnxMpegAndAlpha)
{
    const std::set<int> dnx = {1235, 1237, 1238, 1241, 1242, 1243, 1244, 1250, 1251, 1252,
                               1253, 1256, 1258, 1259, 1260, 1270, 1271, 1272, 1273, 1274};
    for (int n = 1000; n < 1400; ++n) EXPECT_EQ(isDNX(Format(n)), dnx.count(n) == 1) << n;

    for (std::int64_t v = 0x3247504C; v <= 0x32475058; ++v)
        EXPECT_EQ(isMpeg(Format(std::int32_t(v))), v >= 0x3247504D && v <= 0x32475057) << v;
    for (std::int64_t v = 0x32686477; v <= 0x32686485; ++v)
        EXPECT_EQ(isMpeg(Format(std::int32_t(v))), v >= 0x32686478 && v <= 0x32686484) << v;
    for (const char* c : {"hdv1", "hdv9", "hdva", "xdv1", "xdvf", "xd25", "xd5f", "xdhd", "M701",
                          "m701", "MMES", "mmes"})
        EXPECT_TRUE(isMpeg(fromString(c))) << c;
    for (const char* c : {"hdv0", "hdvb", "xdvg", "xd26", "xd5g", "M702", "ARGB"})
        EXPECT_FALSE(isMpeg(fromString(c))) << c;

    for (Format f : probes()) {
        const bool alpha = f == code("ARGB") || f == code("BGRA") || f == code("M103");
        EXPECT_EQ(hasAlphaChannel(f), alpha) << f;
    }
    EXPECT_TRUE(hasAlphaChannel(code("M705")));
    EXPECT_FALSE(hasAlphaChannel(code("AYUV")));
}

TEST(KvImageDefs, ScanModeAndAspectRatioTexts)
{
    for (int m = 0; m <= 5; ++m) {
        EXPECT_EQ(isProgressive(ScanMode(m)), m == 3 || m == 4);
        EXPECT_EQ(isInterlaced(ScanMode(m)), m == 1 || m == 2);
    }
    EXPECT_EQ(scanModeAsDisplayString(FirstFieldTop), resourceStrW(13040));
    EXPECT_EQ(scanModeAsDisplayString(SecondFieldTop), resourceStrW(13041));
    EXPECT_EQ(scanModeAsDisplayString(ScanMode(77)), resourceStrW(12207));
    for (ScanMode m : {FirstFieldTop, SecondFieldTop, Progressive, ProgressiveSegmented})
        EXPECT_EQ(scanModeFromDisplayString(scanModeAsDisplayString(m)), m == ProgressiveSegmented ? Progressive : m);
    EXPECT_EQ(scanModeFromDisplayString(LightweightString<wchar_t>()), InvalidScanMode);
    EXPECT_EQ(scanModeFromDisplayString(LightweightString<wchar_t>(L"sideways")), InvalidScanMode);

    EXPECT_EQ(aspectRatioAsDisplayString(Aspect4x3), L"4:3");
    EXPECT_EQ(aspectRatioAsDisplayString(Aspect16x9), L"16:9");
    EXPECT_TRUE(aspectRatioAsDisplayString(Aspect16x10).empty());
    EXPECT_EQ(aspectRatioFromDisplayString(LightweightString<wchar_t>(L"16:9")), Aspect16x9);
    EXPECT_EQ(aspectRatioFromDisplayString(LightweightString<wchar_t>(L"16:10")), InvalidAspectRatio);
    EXPECT_EQ(aspectRatioFromDisplayString(LightweightString<wchar_t>()), InvalidAspectRatio);
}

// The log names, and the first value past each table, which has none.
TEST(KvImageDefs, DisplayStrings)
{
    EXPECT_STREQ(getDisplayString(Aspect4x3), "4:3");
    EXPECT_STREQ(getDisplayString(AspectRatio(10)), "19:10");
    const std::string out = printed([] {
        EXPECT_STREQ(getDisplayString(AspectRatio(0)), "Unknown");
        EXPECT_STREQ(getDisplayString(AspectRatio(11)), "Unknown");
    });
    EXPECT_NE(out.find("assertion failed false at ole/image/KvImageDefs.cpp:"), std::string::npos);
    const std::pair<const char*, const char*> names[] = {
        {getDisplayString(rescaling_8), "rescaling_8"}, {getDisplayString(BackToBackFieldsInAFrame), "BackToBackFieldsInAFrame"},
        {getDisplayString(ProgressiveSegmented), "ProgressiveSegmented"}, {getDisplayString(C709), "C709"},
        {getDisplayString(Both), "Both"}, {getDisplayString(BothPositions), "BothPositions"},
        {getDisplayString(HasTransparency), "HasTransparency"}, {getDisplayString(Rescaling(3)), "<unknown>"},
        {getDisplayString(Polarity(7)), "<unknown>"}, {getDisplayString(ScanMode(6)), "<unknown>"},
        {getDisplayString(ScanMode(-1)), "<unknown>"}, {getDisplayString(Colorimetry(5)), "<unknown>"},
        {getDisplayString(Raster(5)), "<unknown>"}, {getDisplayString(TemporalPosition(5)), "<unknown>"},
        {getDisplayString(TransparencyType(5)), "<unknown>"}};
    for (const auto& [got, want] : names) EXPECT_STREQ(got, want);
}
