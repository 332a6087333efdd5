#include "ole/image/KvImageDefs.h"

#include <cwchar>

#include "ole/platform/os/KvAssert.h"
#include "ole/platform/settings/KvLog.h"
#include "ole/platform/settings/KvResources.h"

namespace Kv::Image {

bool isCompressedFormat(Format format)
{
    switch (int(format)) {
    case 0: case 31: case 35: case 37: case 38: case 39: case 40: case 41: case 68: case 69:
    case DPX10: case XYZ12: case DIB: case RAW: case P010: case W010: case P210: case W210:
    case Y210: case v210: case W410: case Y410: case I420: case M101: case m101: case W011:
    case W211: case Y211: case W411: case NV21: case IMC1: case M102: case m102: case W012:
    case W212: case W412: case NV12: case YV12: case nv12: case I422: case IMC2: case YUY2:
    case M103: case IMC3: case BGR3: case M104: case NV24: case YV24: case I444: case IMC4:
    case BGR4: case R555: case R565: case P016: case W016: case P216: case W216: case Y216:
    case W416: case Y416: case YV16: case W009: case W209: case W409: case YVU9: case YUV9:
    case BGRA: case VUYA: case RGB: case ARGB: case R32C: case R24C: case B32F: case Y32F:
    case Y41P: case EXTP: case CLJR: case YVYU: case AYUV: case IYUV: case YUYV: case VYUY:
    case UYVY: case argb: case YuYv: case UyVy: case _2vuy:
        return false;
    default:
        return true;
    }
}

unsigned short getBitsPerComponentFromFormat(Format format)
{
    switch (int(format)) {
    case 35: case DPX10: case XYZ12: case v210:
        return 10;
    case 36: case 68: case 69:
        return 16;
    case R555: case R565:
        return 5;
    default:
        return 8;
    }
}

unsigned short getBitsPerPixel(Format format, unsigned short bitsPerComponent)
{
    switch (int(format)) {
    case NV12: case YV12:
        return 12;
    case UYVY: case YUY2:
        switch (bitsPerComponent) {
        case 8: return 16;
        case 10: return 20;
        case 16: return 32;
        default:
            LogBoth("UNEXPECTED BPP %d\n", int(bitsPerComponent));
            return 16;
        }
    case M101: case M102:
        return bitsPerComponent == 10 ? 20 : 16;
    case M103: case M104:
        return bitsPerComponent == 10 ? 28 : 24;
    case RGB: case BGR3:
        return bitsPerComponent == 16 ? 48 : 24;
    case ARGB: case BGRA:
        return bitsPerComponent == 16 ? 64 : 32;
    case HIMX:
        return 8;
    case 31: case 35: case 38: case 39:
        KV_ASSERT(bitsPerComponent == 10);
        return 32;
    case 36: case 37:
        KV_ASSERT(bitsPerComponent == 16);
        return 64;
    case 68:
        return 32;
    case 69:
        return 48;
    default:
        return 16;  // an unknown layout is taken to be 16 bits a pixel, and is no error
    }
}

bool isDNX(Format format)
{
    // The compression identifiers 1235 to 1274 as one 40-bit mask, bit n for 1235 + n.
    constexpr int first = 1235;
    constexpr std::uint64_t mask = [] {
        std::uint64_t m = 0;
        for (int id : {1235, 1237, 1238, 1241, 1242, 1243, 1244, 1250, 1251, 1252, 1253, 1256,
                       1258, 1259, 1260, 1270, 1271, 1272, 1273, 1274})
            m |= std::uint64_t(1) << (id - first);
        return m;
    }();
    const int value = int(format);
    if (value < first || value > first + 39) return false;
    return (mask >> (value - first)) & 1;
}

bool isMpeg(Format format)
{
    const std::int32_t value = format;
    // First character M to W, then P, G, 2; and first byte 0x78 to 0x84, then d, h, 2.
    if (value >= 0x3247504D && value <= 0x32475057) return true;
    if (value >= 0x32686478 && value <= 0x32686484) return true;
    switch (value) {
    case hdv1: case hdv2: case hdv3: case hdv4: case hdv5: case hdv6: case hdv7: case hdv8:
    case hdv9: case hdva:
    case xdv1: case xdv2: case xdv3: case xdv4: case xdv5: case xdv6: case xdv7: case xdv8:
    case xdv9: case xdva: case xdvb: case xdvc: case xdvd: case xdve: case xdvf:
    case xd25: case xd30: case xd35: case xd50: case xd59: case xd5a: case xd5b: case xd5c:
    case xd5d: case xd5e: case xd5f: case xdhd:
    case M701: case m701: case MMES: case mmes:
        return true;
    default:
        return false;
    }
}

bool isProgressive(ScanMode mode) { return mode == Progressive || mode == ProgressiveSegmented; }

bool isInterlaced(ScanMode mode) { return mode == FirstFieldTop || mode == SecondFieldTop; }

bool hasAlphaChannel(Format format)
{
    return format == ARGB || format == BGRA || format == M103 || format == M705;
}

LightweightString<wchar_t> scanModeAsDisplayString(ScanMode mode)
{
    switch (mode) {
    case FirstFieldTop: return resourceStrW(13040);
    case SecondFieldTop: return resourceStrW(13041);
    default: return resourceStrW(12207);
    }
}

// Modes 3 and 4 share their text, so the progressive text always comes back as Progressive.
ScanMode scanModeFromDisplayString(const LightweightString<wchar_t>& text)
{
    if (text.empty()) return InvalidScanMode;
    for (ScanMode mode : {FirstFieldTop, SecondFieldTop, Progressive, ProgressiveSegmented})
        if (std::wcscmp(scanModeAsDisplayString(mode).c_str(), text.c_str()) == 0) return mode;
    return InvalidScanMode;
}

// For the user, who knows only the two video shapes; the log texts are getDisplayString's.
LightweightString<wchar_t> aspectRatioAsDisplayString(AspectRatio ratio)
{
    switch (ratio) {
    case Aspect4x3: return LightweightString<wchar_t>(L"4:3");
    case Aspect16x9: return LightweightString<wchar_t>(L"16:9");
    default: return LightweightString<wchar_t>();
    }
}

AspectRatio aspectRatioFromDisplayString(const LightweightString<wchar_t>& text)
{
    if (text.empty()) return InvalidAspectRatio;
    for (int ratio = 1; ratio <= 10; ++ratio)
        if (aspectRatioAsDisplayString(AspectRatio(ratio)) == text) return AspectRatio(ratio);
    return InvalidAspectRatio;
}

}  // namespace Kv::Image

using namespace Kv::Image;

const char* getDisplayString(AspectRatio value)
{
    static const char* const texts[] = {"4:3",     "16:9",        "16:10", "Full Frame", "Academy",
                                        "Cinemascope", "Flat", "DCI 2.39", "2:1",     "19:10"};
    if (value >= 1 && value <= 10) return texts[value - 1];
    KV_ASSERT(false);
    return "Unknown";
}

const char* getDisplayString(Colorimetry value)
{
    static const char* const texts[] = {"InvalidColorimetry", "C601", "C709", "UnknownColorimetry",
                                        "LastColorimetry"};
    return value >= 0 && value <= 4 ? texts[value] : "<unknown>";
}

const char* getDisplayString(Polarity value)
{
    static const char* const texts[] = {"InvalidPolarity", "FirstField", "SecondField",
                                        "InterlacedFieldsInAFrame", "ProgressiveFrame",
                                        "BackToBackFieldsInAFrame", "LastPolarity"};
    return value >= 0 && value <= 6 ? texts[value] : "<unknown>";
}

const char* getDisplayString(Raster value)
{
    static const char* const texts[] = {"InvalidRaster", "Lower", "Upper", "Both", "LastRaster"};
    return value >= 0 && value <= 4 ? texts[value] : "<unknown>";
}

const char* getDisplayString(Rescaling value)
{
    switch (value) {
    case InvalidRescaling: return "InvalidRescaling";
    case no_rescaling: return "no_rescaling";
    case rescaling_2: return "rescaling_2";
    case rescaling_4: return "rescaling_4";
    case rescaling_8: return "rescaling_8";
    default: return "<unknown>";
    }
}

const char* getDisplayString(ScanMode value)
{
    static const char* const texts[] = {"InvalidScanMode", "FirstFieldTop", "SecondFieldTop",
                                        "Progressive", "ProgressiveSegmented", "LastScanMode"};
    return value >= 0 && value <= 5 ? texts[value] : "<unknown>";
}

const char* getDisplayString(TemporalPosition value)
{
    static const char* const texts[] = {"InvalidTemporalPosition", "First", "Second",
                                        "BothPositions", "LastTemporalPosition"};
    return value >= 0 && value <= 4 ? texts[value] : "<unknown>";
}

const char* getDisplayString(TransparencyType value)
{
    static const char* const texts[] = {"InvalidTransparencyType", "Unknown", "HasTransparency",
                                        "Opaque", "LastTransparencyType"};
    return value >= 0 && value <= 4 ? texts[value] : "<unknown>";
}
