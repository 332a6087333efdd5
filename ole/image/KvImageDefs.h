#pragma once
// The vocabulary of a picture: its pixel layout (Format), the enumerations that describe it as
// video, and the pure functions that classify a layout or turn a value into text.

#include <cstdint>

#include "ole/misc/LightweightString.h"
#include "ole/platform/os/KvPlatformExport.h"

namespace Kv::Image {

// Four characters, the first in the lowest byte.
constexpr std::int32_t fourCC(char a, char b, char c, char d) noexcept
{
    return std::int32_t(std::uint32_t(std::uint8_t(a)) | std::uint32_t(std::uint8_t(b)) << 8 |
                        std::uint32_t(std::uint8_t(c)) << 16 | std::uint32_t(std::uint8_t(d)) << 24);
}

// A pixel layout: a four-character code, a small integer, or InvalidFormat. The small
// integers have no names here and are used by number.
enum Format : std::int32_t {
    InvalidFormat = -1,

    // Layouts the library handles as pixels.
    ARGB = fourCC('A', 'R', 'G', 'B'),
    BGRA = fourCC('B', 'G', 'R', 'A'),
    RGB = fourCC(' ', 'R', 'G', 'B'),
    BGR3 = fourCC('B', 'G', 'R', '3'),
    BGR4 = fourCC('B', 'G', 'R', '4'),
    UYVY = fourCC('U', 'Y', 'V', 'Y'),
    YUY2 = fourCC('Y', 'U', 'Y', '2'),
    YVYU = fourCC('Y', 'V', 'Y', 'U'),
    YUYV = fourCC('Y', 'U', 'Y', 'V'),
    YV12 = fourCC('Y', 'V', '1', '2'),
    NV12 = fourCC('N', 'V', '1', '2'),
    M101 = fourCC('M', '1', '0', '1'),
    M102 = fourCC('M', '1', '0', '2'),
    M103 = fourCC('M', '1', '0', '3'),
    M104 = fourCC('M', '1', '0', '4'),
    DIB = fourCC('D', 'I', 'B', ' '),

    // Two codes end in a control byte.
    DPX10 = fourCC('D', 'P', 'X', '\x0A'),
    XYZ12 = fourCC('X', 'Y', 'Z', '\x0C'),

    // Uncompressed layouts other parts of the editor handle.
    RAW = fourCC('R', 'A', 'W', ' '),
    P010 = fourCC('P', '0', '1', '0'), W010 = fourCC('W', '0', '1', '0'),
    P210 = fourCC('P', '2', '1', '0'), W210 = fourCC('W', '2', '1', '0'),
    Y210 = fourCC('Y', '2', '1', '0'), v210 = fourCC('v', '2', '1', '0'),
    W410 = fourCC('W', '4', '1', '0'), Y410 = fourCC('Y', '4', '1', '0'),
    I420 = fourCC('I', '4', '2', '0'), m101 = fourCC('m', '1', '0', '1'),
    W011 = fourCC('W', '0', '1', '1'), W211 = fourCC('W', '2', '1', '1'),
    Y211 = fourCC('Y', '2', '1', '1'), W411 = fourCC('W', '4', '1', '1'),
    NV21 = fourCC('N', 'V', '2', '1'), IMC1 = fourCC('I', 'M', 'C', '1'),
    m102 = fourCC('m', '1', '0', '2'), W012 = fourCC('W', '0', '1', '2'),
    W212 = fourCC('W', '2', '1', '2'), W412 = fourCC('W', '4', '1', '2'),
    nv12 = fourCC('n', 'v', '1', '2'), I422 = fourCC('I', '4', '2', '2'),
    IMC2 = fourCC('I', 'M', 'C', '2'), IMC3 = fourCC('I', 'M', 'C', '3'),
    NV24 = fourCC('N', 'V', '2', '4'), YV24 = fourCC('Y', 'V', '2', '4'),
    I444 = fourCC('I', '4', '4', '4'), IMC4 = fourCC('I', 'M', 'C', '4'),
    R555 = fourCC('R', '5', '5', '5'), R565 = fourCC('R', '5', '6', '5'),
    P016 = fourCC('P', '0', '1', '6'), W016 = fourCC('W', '0', '1', '6'),
    P216 = fourCC('P', '2', '1', '6'), W216 = fourCC('W', '2', '1', '6'),
    Y216 = fourCC('Y', '2', '1', '6'), W416 = fourCC('W', '4', '1', '6'),
    Y416 = fourCC('Y', '4', '1', '6'), YV16 = fourCC('Y', 'V', '1', '6'),
    W009 = fourCC('W', '0', '0', '9'), W209 = fourCC('W', '2', '0', '9'),
    W409 = fourCC('W', '4', '0', '9'), YVU9 = fourCC('Y', 'V', 'U', '9'),
    YUV9 = fourCC('Y', 'U', 'V', '9'), VUYA = fourCC('V', 'U', 'Y', 'A'),
    R32C = fourCC('R', '3', '2', 'C'), R24C = fourCC('R', '2', '4', 'C'),
    B32F = fourCC('B', '3', '2', 'F'), Y32F = fourCC('Y', '3', '2', 'F'),
    Y41P = fourCC('Y', '4', '1', 'P'), EXTP = fourCC('E', 'X', 'T', 'P'),
    CLJR = fourCC('C', 'L', 'J', 'R'), AYUV = fourCC('A', 'Y', 'U', 'V'),
    IYUV = fourCC('I', 'Y', 'U', 'V'), VYUY = fourCC('V', 'Y', 'U', 'Y'),
    argb = fourCC('a', 'r', 'g', 'b'), YuYv = fourCC('Y', 'u', 'Y', 'v'),
    UyVy = fourCC('U', 'y', 'V', 'y'),
    _2vuy = fourCC('2', 'v', 'u', 'y'),  // a name may not start with a digit
    HIMX = fourCC('H', 'I', 'M', 'X'),
    M705 = fourCC('M', '7', '0', '5'),

    // Compressed MPEG layouts with names of their own.
    hdv1 = fourCC('h', 'd', 'v', '1'), hdv2 = fourCC('h', 'd', 'v', '2'),
    hdv3 = fourCC('h', 'd', 'v', '3'), hdv4 = fourCC('h', 'd', 'v', '4'),
    hdv5 = fourCC('h', 'd', 'v', '5'), hdv6 = fourCC('h', 'd', 'v', '6'),
    hdv7 = fourCC('h', 'd', 'v', '7'), hdv8 = fourCC('h', 'd', 'v', '8'),
    hdv9 = fourCC('h', 'd', 'v', '9'), hdva = fourCC('h', 'd', 'v', 'a'),
    xdv1 = fourCC('x', 'd', 'v', '1'), xdv2 = fourCC('x', 'd', 'v', '2'),
    xdv3 = fourCC('x', 'd', 'v', '3'), xdv4 = fourCC('x', 'd', 'v', '4'),
    xdv5 = fourCC('x', 'd', 'v', '5'), xdv6 = fourCC('x', 'd', 'v', '6'),
    xdv7 = fourCC('x', 'd', 'v', '7'), xdv8 = fourCC('x', 'd', 'v', '8'),
    xdv9 = fourCC('x', 'd', 'v', '9'), xdva = fourCC('x', 'd', 'v', 'a'),
    xdvb = fourCC('x', 'd', 'v', 'b'), xdvc = fourCC('x', 'd', 'v', 'c'),
    xdvd = fourCC('x', 'd', 'v', 'd'), xdve = fourCC('x', 'd', 'v', 'e'),
    xdvf = fourCC('x', 'd', 'v', 'f'),
    xd25 = fourCC('x', 'd', '2', '5'), xd30 = fourCC('x', 'd', '3', '0'),
    xd35 = fourCC('x', 'd', '3', '5'), xd50 = fourCC('x', 'd', '5', '0'),
    xd59 = fourCC('x', 'd', '5', '9'), xd5a = fourCC('x', 'd', '5', 'a'),
    xd5b = fourCC('x', 'd', '5', 'b'), xd5c = fourCC('x', 'd', '5', 'c'),
    xd5d = fourCC('x', 'd', '5', 'd'), xd5e = fourCC('x', 'd', '5', 'e'),
    xd5f = fourCC('x', 'd', '5', 'f'), xdhd = fourCC('x', 'd', 'h', 'd'),
    M701 = fourCC('M', '7', '0', '1'), m701 = fourCC('m', '7', '0', '1'),
    MMES = fourCC('M', 'M', 'E', 'S'), mmes = fourCC('m', 'm', 'e', 's'),
};

enum ScanMode : std::int32_t {
    InvalidScanMode = 0,
    FirstFieldTop = 1,
    SecondFieldTop = 2,
    Progressive = 3,
    ProgressiveSegmented = 4,
    LastScanMode = 5,
};

// Which part of a frame a surface holds.
enum Polarity : std::int32_t {
    InvalidPolarity = 0,
    FirstField = 1,
    SecondField = 2,
    InterlacedFieldsInAFrame = 3,
    ProgressiveFrame = 4,
    BackToBackFieldsInAFrame = 5,
    LastPolarity = 6,
};

enum Raster : std::int32_t {
    InvalidRaster = 0,
    Lower = 1,
    Upper = 2,
    Both = 3,
    LastRaster = 4,
};

enum Rescaling : std::int32_t {
    InvalidRescaling = 0,
    no_rescaling = 1,
    rescaling_2 = 2,
    rescaling_4 = 4,
    rescaling_8 = 8,
};

enum TemporalPosition : std::int32_t {
    InvalidTemporalPosition = 0,
    First = 1,
    Second = 2,
    BothPositions = 3,
    LastTemporalPosition = 4,
};

enum TransparencyType : std::int32_t {
    InvalidTransparencyType = 0,
    Unknown = 1,
    HasTransparency = 2,
    Opaque = 3,
    LastTransparencyType = 4,
};

enum Colorimetry : std::int32_t {
    InvalidColorimetry = 0,
    C601 = 1,
    C709 = 2,
    UnknownColorimetry = 3,
    LastColorimetry = 4,
};

// Display shapes, 1 to 10; 0 has no text.
enum AspectRatio : std::int32_t {
    InvalidAspectRatio = 0,
    Aspect4x3 = 1,
    Aspect16x9 = 2,
    Aspect16x10 = 3,
    AspectFullFrame = 4,
    AspectAcademy = 5,
    AspectCinemascope = 6,
    AspectFlat = 7,
    AspectDCI239 = 8,
    Aspect2x1 = 9,
    Aspect19x10 = 10,
};

// True for everything but the uncompressed layouts; InvalidFormat and 36 count as compressed.
KV_EXPORT bool isCompressedFormat(Format format);
KV_EXPORT unsigned short getBitsPerComponentFromFormat(Format format);
KV_EXPORT unsigned short getBitsPerPixel(Format format, unsigned short bitsPerComponent);
KV_EXPORT bool isDNX(Format format);
KV_EXPORT bool isMpeg(Format format);
KV_EXPORT bool isProgressive(ScanMode mode);
KV_EXPORT bool isInterlaced(ScanMode mode);
KV_EXPORT bool hasAlphaChannel(Format format);

KV_EXPORT LightweightString<wchar_t> scanModeAsDisplayString(ScanMode mode);
KV_EXPORT ScanMode scanModeFromDisplayString(const LightweightString<wchar_t>& text);
KV_EXPORT LightweightString<wchar_t> aspectRatioAsDisplayString(AspectRatio ratio);
KV_EXPORT AspectRatio aspectRatioFromDisplayString(const LightweightString<wchar_t>& text);

}  // namespace Kv::Image

// Texts for logs: the enumerator's name, "<unknown>" for another value ("Unknown" plus the
// assertion print for an aspect ratio outside 1 to 10).
KV_EXPORT const char* getDisplayString(Kv::Image::AspectRatio value);
KV_EXPORT const char* getDisplayString(Kv::Image::Colorimetry value);
KV_EXPORT const char* getDisplayString(Kv::Image::Polarity value);
KV_EXPORT const char* getDisplayString(Kv::Image::Raster value);
KV_EXPORT const char* getDisplayString(Kv::Image::Rescaling value);
KV_EXPORT const char* getDisplayString(Kv::Image::ScanMode value);
KV_EXPORT const char* getDisplayString(Kv::Image::TemporalPosition value);
KV_EXPORT const char* getDisplayString(Kv::Image::TransparencyType value);
