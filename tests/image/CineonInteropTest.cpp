// Film scans made by the field's tools (ImageMagick, ffmpeg, oiiotool) at test time, read by us
// and by OpenImageIO: sizes and orientation exact, samples within what the reader's own tables
// explain, metadata as the tool wrote it; and our DPX files as OpenImageIO reads them.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ole/image/cineon.h"
#include "ole/platform/labels/KvCurrentProject.h"
#include "ole/platform/text/KvText.h"
#include "tests/support/Interop.h"

using namespace Kv::Image;

namespace {

// A picture as OpenImageIO decodes it, three channels of `type`, top line first.
template <class T>
struct Peer {
    int width = 0, height = 0;
    std::vector<T> samples;
    OIIO::ImageSpec spec;

    T at(int x, int y, int c) const { return samples[(std::size_t(y) * width + x) * 3 + c]; }
};

template <class T>
Peer<T> readPeer(const std::string& path)
{
    Peer<T> out;
    auto in = OIIO::ImageInput::open(path);
    if (!in) return out;
    out.spec = in->spec();
    std::vector<T> data(std::size_t(out.spec.width) * out.spec.height * 3);
    const OIIO::TypeDesc type = sizeof(T) == 1 ? OIIO::TypeDesc::UINT8 : OIIO::TypeDesc::UINT16;
    if (!in->read_image(0, 0, 0, 3, type, data.data())) return out;
    out.width = out.spec.width;
    out.height = out.spec.height;
    out.samples = std::move(data);
    return out;
}

// A 10-bit code from OpenImageIO's 16-bit sample of it.
int code10(std::uint16_t v) { return int((std::uint32_t(v) * 1023 + 32767) / 65535); }

// The logarithmic film curve at the default levels (black 95, white 685), written out from its
// formula here rather than taken from the library.
int logToDisplay(int code)
{
    if (code < 95) return 0;
    if (code >= 685) return 255;
    const double k = 1.0 / 300.0, g = 6.0 / 17.0;
    const double gain = 255.0 / (1.0 - std::pow(std::pow(10.0, (95 - 685) * k), g));
    const double v = std::pow(std::pow(10.0, (code - 685) * k), g) * gain - (gain - 255.0);
    return int(v > 0 ? v + 0.5 : v - 0.5);
}

Surface load(const std::string& path, Format format, unsigned short bits, StillImageMetadata* metadata = nullptr)
{
    return loadCineonImage(fromUTF8(path.c_str()), Core::Data(65535, 65535, format, bits, 0, true), metadata);
}

// The largest difference between our 8-bit ARGB and what `expected(x, y, channel)` gives,
// channels red, green, blue; -1 when the sizes differ.
template <class Expected>
int worst8(const Surface& ours, int width, int height, Expected expected)
{
    if (int(ours.getWidth()) != width || int(ours.getHeight()) != height || !ours.getDataPtr()) return -1;
    int worst = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const unsigned char* p = ours.getDataPtr() + (std::size_t(y) * width + x) * 4;
            for (int c = 0; c < 3; ++c) worst = std::max(worst, std::abs(int(p[2 - c]) - expected(x, y, c)));
        }
    return worst;
}

std::string byteAt(const std::string& path, long offset, int count)
{
    std::string bytes(std::size_t(count), '\0');
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return {};
    std::fseek(f, offset, SEEK_SET);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), f));
    std::fclose(f);
    return bytes;
}

const std::string kLavfi = std::string(Interop::kFfmpeg) + " -y -f lavfi -i testsrc=s=64x48 -frames 1 ";
const std::string kPattern = std::string(Interop::kOiiotool) + " --pattern fill:topleft=.9,.1,.05:topright=.1,.8,.2:bottomleft=.3,.3,.9:bottomright=1,1,1 64x48 3 ";
const std::string kRamp = std::string(Interop::kMagick) + " -size 64x48 gradient:'#f02010'-'#1040e0' ";

}  // namespace

// 10-bit linear RGB, big- and little-endian, from all three tools, into 8-bit ARGB: within one
// code of OpenImageIO's 8 bits (our table divides by 1024, theirs by 1023).
TEST(CineonInterop, TenBitLinearDpxFromEveryTool)
{
    TempDir dir;
    const std::string files[][2] = {
        {kRamp + "-depth 10 %s", "magick-be.dpx"},
        {kLavfi + "-pix_fmt gbrp10le %s", "ffmpeg-le.dpx"},
        {kPattern + "-d uint10 -o %s", "oiio-le.dpx"},
        {kPattern + "-d uint10 --attrib oiio:Endian big -o %s", "oiio-be.dpx"},
    };
    for (const auto& [command, leaf] : files) {
        const std::string path = dir.file(leaf);
        char line[512];
        std::snprintf(line, sizeof line, command.c_str(), path.c_str());
        ASSERT_TRUE(Interop::run(line)) << line;
        const Peer<unsigned char> peer = readPeer<unsigned char>(path);
        ASSERT_GT(peer.width, 0) << leaf;
        const Surface ours = load(path, ARGB, 8);
        EXPECT_TRUE(ours.getIsTopDown()) << leaf;
        const int worst = worst8(ours, peer.width, peer.height, [&](int x, int y, int c) { return int(peer.at(x, y, c)); });
        EXPECT_GE(worst, 0) << leaf << ": size " << ours.getWidth() << "x" << ours.getHeight();
        EXPECT_LE(worst, 1) << leaf;
    }
}

// A logarithmic DPX (oiiotool) and a Cineon file (ImageMagick): the film curve applied to the
// codes OpenImageIO reads, exactly.
TEST(CineonInterop, LogarithmicDpxAndCineonFollowTheFilmCurve)
{
    TempDir dir;
    const std::string dpx = dir.file("log.dpx"), cin = dir.file("scan.cin");
    ASSERT_TRUE(Interop::run(kPattern + "-d uint10 --attrib dpx:Transfer Logarithmic --attrib oiio:Endian big -o " + dpx));
    ASSERT_TRUE(Interop::run(kRamp + "-depth 10 " + cin));
    for (const std::string& path : {dpx, cin}) {
        const Peer<std::uint16_t> peer = readPeer<std::uint16_t>(path);
        ASSERT_GT(peer.width, 0) << path;
        const Surface ours = load(path, ARGB, 8);
        const int worst = worst8(ours, peer.width, peer.height,
                                 [&](int x, int y, int c) { return logToDisplay(code10(peer.at(x, y, c))); });
        EXPECT_EQ(worst, 0) << path;
    }
}

// 16-bit RGB kept at 16 bits, in either byte order, sample for sample; a big-endian one asked
// for in 8 bits keeps the high byte of each sample. 8-bit RGB comes in as the file lays it.
TEST(CineonInterop, SixteenAndEightBitDpxSampleForSample)
{
    TempDir dir;
    const std::string be16 = dir.file("be16.dpx"), le16 = dir.file("le16.dpx"), ff16 = dir.file("ff16.dpx");
    ASSERT_TRUE(Interop::run(kRamp + "-depth 16 " + be16));
    ASSERT_TRUE(Interop::run(kPattern + "-d uint16 -o " + le16));
    ASSERT_TRUE(Interop::run(kLavfi + "-pix_fmt rgb48le " + ff16));
    for (const std::string& path : {be16, le16, ff16}) {
        const Peer<std::uint16_t> peer = readPeer<std::uint16_t>(path);
        ASSERT_GT(peer.width, 0) << path;
        const Surface ours = load(path, RGB, 16);
        ASSERT_EQ(ours.getWidth(), unsigned(peer.width)) << path;
        ASSERT_EQ(ours.getHeight(), unsigned(peer.height)) << path;
        ASSERT_EQ(ours.getBitsPerComponent(), 16) << path;
        EXPECT_EQ(std::memcmp(ours.getDataPtr(), peer.samples.data(), peer.samples.size() * 2), 0) << path;
    }
    const Peer<std::uint16_t> peer = readPeer<std::uint16_t>(be16);
    const Surface narrowed = load(be16, RGB, 8);
    ASSERT_EQ(narrowed.getBitsPerComponent(), 8);
    for (std::size_t i = 0; i < peer.samples.size(); ++i)
        ASSERT_EQ(narrowed.getDataPtr()[i], peer.samples[i] >> 8) << "sample " << i;

    const std::string be8 = dir.file("be8.dpx"), le8 = dir.file("le8.dpx");
    ASSERT_TRUE(Interop::run(kRamp + "-depth 8 " + be8));
    ASSERT_TRUE(Interop::run(kLavfi + "-pix_fmt rgb24 " + le8));
    for (const std::string& path : {be8, le8}) {
        const Peer<unsigned char> peer8 = readPeer<unsigned char>(path);
        const Surface ours = load(path, RGB, 8);
        ASSERT_EQ(ours.getWidth(), unsigned(peer8.width)) << path;
        ASSERT_GE(ours.getImageSize(), peer8.samples.size()) << path;
        EXPECT_EQ(std::memcmp(ours.getDataPtr(), peer8.samples.data(), peer8.samples.size()), 0) << path;
    }
}

// Timecode, key number and frame rate as oiiotool and ImageMagick write them.
TEST(CineonInterop, MetadataAsTheToolsWriteIt)
{
    TempDir dir;
    const std::string oiio = dir.file("keyed.dpx"), magick = dir.file("timed.dpx");
    ASSERT_TRUE(Interop::run(kPattern + "-d uint10 --attrib:type=timecode smpte:TimeCode 01:02:03:04 "
                             "--attrib:type=keycode smpte:KeyCode 1,2,3,4,5,4,64 --attrib dpx:FrameRate 25.0 -o " + oiio));
    ASSERT_TRUE(Interop::run(kRamp + "-depth 10 -define dpx:television.time.code=10:20:30:12 -define dpx:film.frame_rate=24 " + magick));

    StillImageMetadata keyed;
    ASSERT_TRUE(load(oiio, ARGB, 8, &keyed).getDataPtr());
    ASSERT_TRUE(keyed.timecode.is_valid());
    EXPECT_STREQ(keyed.timecode.get_string(0).c_str(), "01:02:03:04");
    EXPECT_EQ(keyed.frameRate, Kv::getEquivalentKvFrameRate(25.0));
    ASSERT_TRUE(keyed.keykode.is_valid());
    // Manufacturer 01, prefix 000003, count 0004, perforation offset 05; the film format
    // oiiotool writes ("Unknown") reads as 35 mm 4-perf.
    EXPECT_STREQ(keyed.keykode.get_string(0).c_str(), "010000030004+05");
    EXPECT_EQ(keyed.keykode.get_type(), label_t(10));

    StillImageMetadata timed;
    ASSERT_TRUE(load(magick, ARGB, 8, &timed).getDataPtr());
    EXPECT_STREQ(timed.timecode.get_string(0).c_str(), "10:20:30:12");
    EXPECT_EQ(timed.frameRate, Kv::getEquivalentKvFrameRate(24.0));
    EXPECT_FALSE(timed.keykode.is_valid());
}

// Our DPX files as the tools read them: the header fields, the 10-bit samples exactly (ffmpeg),
// and the timecode and key number we wrote (OpenImageIO).
TEST(CineonInterop, OurDpxReadByOpenImageIO)
{
    TempDir dir;
    for (unsigned width : {720u, 721u}) {
        Surface picture(width, 9, Format(35), true, 10, 0, 0);
        auto* words = reinterpret_cast<std::uint32_t*>(picture.getDataPtr());
        for (unsigned i = 0; i < width * 9; ++i) words[i] = (i * 7 % 1024) << 20 | (i * 13 % 1024) << 10 | (i * 29 % 1024);
        EditLabel timecode, keykode;
        timecode.init(MediumRollIdent(eMediumVideo, 2));
        timecode.set_type(getDefaultLabelTypeForMedium(eMediumVideo));
        ASSERT_TRUE(timecode.set_string("01:00:00:00"));
        keykode.init(MediumRollIdent(eMediumFilm, 1));
        keykode.set_type(label_t(11));
        ASSERT_TRUE(keykode.set_string("KU1234560042+07"));
        const std::string path = dir.file("ours" + std::to_string(width) + ".dpx");
        ASSERT_EQ(saveDPXImage(picture, fromUTF8(path.c_str()), &timecode, &keykode, eMediumVideo, 0.0, 0), 1);

        EXPECT_EQ(byteAt(path, 0, 8), std::string("XPDS\0\x08\0\0", 8));  // host order, pixels at 2048
        EXPECT_EQ(byteAt(path, 800, 6), std::string("2\x02") + char(width > 720 ? 6 : 8) + std::string("\x0a\x01\0", 3));
        const OIIO::ImageSpec spec = readPeer<std::uint16_t>(path).spec;
        EXPECT_EQ(spec.width, int(width));
        EXPECT_EQ(spec.height, 9);
        EXPECT_EQ(spec.get_string_attribute("dpx:Transfer"), "Linear");
        // The pixels as ffmpeg reads them, from the image offset of the file header. (OpenImageIO
        // takes them from the image element's own data offset, which our writer leaves 0.)
        const std::string raw = path + ".gbrp";
        ASSERT_TRUE(Interop::run(std::string(Interop::kFfmpeg) + " -y -i " + path + " -f rawvideo -pix_fmt gbrp10le " + raw));
        const std::string planes = byteAt(raw, 0, int(width * 9 * 6));
        ASSERT_EQ(planes.size(), width * 9 * 6);
        auto sample = [&](int plane, unsigned i) {
            return int(std::uint8_t(planes[(plane * width * 9 + i) * 2]) | std::uint8_t(planes[(plane * width * 9 + i) * 2 + 1]) << 8);
        };
        int mismatches = 0;
        for (unsigned i = 0; i < width * 9; ++i)
            mismatches += sample(2, i) != int(words[i] >> 20 & 0x3FF) || sample(0, i) != int(words[i] >> 10 & 0x3FF) ||
                          sample(1, i) != int(words[i] & 0x3FF);
        EXPECT_EQ(mismatches, 0);
        const Peer<std::uint16_t> peer{0, 0, {}, spec};
        EXPECT_EQ(peer.spec.get_string_attribute("dpx:TimeCode"), "01:00:00:00");
        const OIIO::ParamValue* key = peer.spec.find_attribute("smpte:KeyCode");
        ASSERT_NE(key, nullptr);
        const int* k = static_cast<const int*>(key->data());
        // Manufacturer 85 ("KU" is not a number for OpenImageIO), prefix, count 42, offset 7.
        EXPECT_EQ(k[3], 42);
        EXPECT_EQ(k[4], 7);
        EXPECT_EQ(peer.spec.get_string_attribute("dpx:Format"), "16 mm");
    }
}
