#include "FilmScans.h"

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "Text.h"
#include "ole/image/ImageConvert.h"
#include "ole/image/cineon.h"
#include "ole/platform/labels/KvCurrentProject.h"
#include "ole/platform/settings/KvSettings.h"
#include "ole/platform/text/KvText.h"

namespace KvCli {

using namespace Kv::Image;

namespace {

// The 2048 bytes of a film scan's header; false when the file is shorter.
bool readHeader(const std::string& path, unsigned char (&bytes)[2048])
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return false;
    const bool ok = std::fread(bytes, 1, sizeof bytes, file) == sizeof bytes;
    std::fclose(file);
    return ok;
}

// Header numbers in the file's byte order.
struct Fields {
    const unsigned char* bytes;
    bool big;

    std::uint32_t u32(std::size_t at) const
    {
        const unsigned char* p = bytes + at;
        return big ? std::uint32_t(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3]
                   : std::uint32_t(p[3]) << 24 | p[2] << 16 | p[1] << 8 | p[0];
    }
    unsigned u16(std::size_t at) const
    {
        const unsigned char* p = bytes + at;
        return big ? unsigned(p[0]) << 8 | p[1] : unsigned(p[1]) << 8 | p[0];
    }
    unsigned u8(std::size_t at) const { return bytes[at]; }
    float f32(std::size_t at) const
    {
        const std::uint32_t v = u32(at);
        float f;
        std::memcpy(&f, &v, 4);
        return f;
    }
    std::string text(std::size_t at, std::size_t size) const
    {
        std::string t(reinterpret_cast<const char*>(bytes + at), size);
        t.resize(std::strlen(t.c_str()));
        return t;
    }
};

const char* descriptorName(unsigned d)
{
    switch (d) {
    case 1: return "red";
    case 2: return "green";
    case 3: return "blue";
    case 4: return "alpha";
    case 6: return "luma";
    case 50: return "RGB";
    case 51: return "RGBA";
    case 52: return "ABGR";
    case 100: return "CbYCrY 4:2:2";
    case 101: return "CbYACrYA 4:2:2:4";
    case 102: return "CbYCr 4:4:4";
    case 103: return "CbYCrA 4:4:4:4";
    default: return "other";
    }
}

// The characteristic numbers shared by the transfer and colorimetric bytes.
const char* characteristicName(unsigned c)
{
    switch (c) {
    case 0: return "user defined";
    case 1: return "printing density";
    case 2: return "linear";
    case 3: return "logarithmic";
    case 4: return "unspecified video";
    case 5: return "SMPTE 274M";
    case 6: return "ITU-R 709";
    case 7: return "ITU-R 601 (625 lines)";
    case 8: return "ITU-R 601 (525 lines)";
    case 9: return "NTSC composite";
    case 10: return "PAL composite";
    case 11: return "Z linear";
    case 12: return "Z homogeneous";
    default: return "other";
    }
}

const char* packingName(unsigned p)
{
    switch (p) {
    case 0: return "packed";
    case 1: return "filled, method A (components high in each word)";
    case 2: return "filled, method B (components low in each word)";
    default: return "other";
    }
}

// The reader names the reel after the file's folder, so it is given the whole path.
LightweightString<wchar_t> fullPath(const std::string& path)
{
    std::error_code ec;
    const std::filesystem::path full = std::filesystem::absolute(path, ec);
    return fromUTF8(ec ? path.c_str() : full.c_str());
}

std::string labelText(const EditLabel& label)
{
    return label.is_valid() ? label.get_string(0).c_str() : "none";
}

}  // namespace

FilmScan filmScanType(const std::string& path)
{
    unsigned char magic[4];
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return FilmScan::None;
    const bool ok = std::fread(magic, 1, 4, file) == 4;
    std::fclose(file);
    if (!ok) return FilmScan::None;
    FourByteReorderable<unsigned int> first;
    std::memcpy(&first.value, magic, 4);
    if (CINFile::isValidSignature(first)) return FilmScan::Cineon;
    if (DPXFile::isValidSignature(first)) return FilmScan::DPX;
    return FilmScan::None;
}

bool loadFilmScan(const std::string& path, unsigned int width, unsigned int height, Format format, unsigned short depth,
                  Surface& picture, std::string& error)
{
    // The reader thins a scan by a power of two chosen from the smaller of the two numbers:
    // asking for more than any scan has reads every line.
    const Core::Data wanted(width ? width : 65535, height ? height : 65535, format == InvalidFormat ? ARGB : format,
                            depth ? depth : 8, 0, true);
    picture = loadCineonImage(fullPath(path), wanted, nullptr);
    if (!picture.getDataPtr()) {
        error = "not a film scan this reader takes (Cineon 10-bit; DPX RGB at 8, 10 or 16 bits, or 10-bit 4:2:2)";
        return false;
    }
    // DPX says which line comes first; Cineon lays the top line first without saying so.
    if (filmScanType(path) == FilmScan::Cineon) picture.setIsTopDown(true);
    if (!picture.getIsTopDown()) picture.flip();
    return true;
}

bool saveDpx(const Surface& picture, const std::string& path, const DpxLabels& labels, std::string& error)
{
    // 10-bit RGB, the form film scans travel in, which every DPX reader takes.
    Surface tenBit = picture;
    if (int(picture.getDataFormat()) != 35) {
        tenBit = Surface(picture.getWidth(), picture.getHeight(), Format(35), true, 10, 0, 0);
        tenBit.setIsTopDown(true);
        if (!ImageConverter::convert(picture, tenBit)) {
            error = "no conversion of this layout to 10-bit RGB for a DPX file";
            return false;
        }
    }
    if (!tenBit.getIsTopDown()) tenBit.flip();

    EditLabel timecode, keykode;
    if (!labels.timecode.empty()) {
        timecode.init(MediumRollIdent(eMediumVideo, 2));
        const bool drop = labels.timecode.find(';') != std::string::npos;
        timecode.set_type(drop ? eLabelTimecode30DF : getDefaultLabelTypeForMedium(eMediumVideo));
        if (!timecode.set_string(labels.timecode.c_str())) {
            error = "the timecode '" + labels.timecode + "' is not hh:mm:ss:ff at the project's frame rate";
            return false;
        }
    }
    if (!labels.keykode.empty()) {
        const label_t type = labels.film == "16mm" || labels.film == "16 mm" ? eLabelKeykode16mm
                             : labels.film == "3-perf"                      ? eLabelKeykode35mm3Perf
                                                                            : eLabelKeykode35mm4Perf;
        keykode.init(MediumRollIdent(eMediumFilm, 1));
        keykode.set_type(type);
        if (!keykode.set_string(labels.keykode.c_str())) {
            error = "the key number '" + labels.keykode + "' is not 2 + 6 characters, 4 digits, '+', 2 digits";
            return false;
        }
    }
    if (!saveDPXImage(tenBit, fromUTF8(path.c_str()), timecode.is_valid() ? &timecode : nullptr,
                      keykode.is_valid() ? &keykode : nullptr, eMediumVideo, 0.0, 0)) {
        error = "cannot write the file";
        return false;
    }
    return true;
}

bool describeFilmScan(const std::string& path, FilmScan type, std::vector<std::string>& lines, std::string& error)
{
    unsigned char bytes[2048];
    if (!readHeader(path, bytes)) {
        error = "shorter than the 2048 bytes of a film scan's header";
        return false;
    }
    std::uint32_t magic;
    std::memcpy(&magic, bytes, 4);
    const bool hostOrder = type == FilmScan::DPX ? magic == 0x53445058 : magic == CINFile::magic;
    // The host is little-endian: a file in host order is little-endian.
    const Fields f{bytes, !hostOrder};
    const char* order = f.big ? "big-endian" : "little-endian";

    if (type == FilmScan::Cineon) {
        const unsigned packing = f.u8(681);
        lines.push_back("type         Cineon");
        lines.push_back(format("size         %u x %u", f.u32(200), f.u32(204)));
        lines.push_back(format("depth        %u bits a sample", f.u8(198)));
        lines.push_back(format("packing      %u (%s)", packing,
                               packing == 5 ? "10-bit in 32-bit words, two bits spare at the bottom"
                                            : "10-bit in 32-bit words, two bits spare at the top"));
        lines.push_back(format("orientation  %u%s", f.u8(192), f.u8(192) == 0 ? " (left to right, top to bottom)" : ""));
        lines.push_back(format("byte order   %s", order));
        lines.push_back(format("image offset %u", f.u32(4)));
        lines.push_back("loads as     ARGB, 8 bits a component, through the film curve (logarithmic)");
        return true;
    }

    const unsigned descriptor = f.u8(800), transfer = f.u8(801), colorimetric = f.u8(802), depth = f.u8(803);
    lines.push_back("type         DPX");
    lines.push_back(format("size         %u x %u", f.u32(772), f.u32(776)));
    lines.push_back(format("descriptor   %u (%s)", descriptor, descriptorName(descriptor)));
    lines.push_back(format("depth        %u bits a component", depth));
    lines.push_back(format("packing      %u (%s)", f.u16(804), packingName(f.u16(804))));
    lines.push_back(format("transfer     %u (%s)", transfer, characteristicName(transfer)));
    lines.push_back(format("colorimetric %u (%s)", colorimetric, characteristicName(colorimetric)));
    lines.push_back(format("byte order   %s", order));
    lines.push_back(format("image offset %u", f.u32(4)));
    if (f.u16(806) != 0) lines.push_back(format("encoding     %u (run-length: not read by this library)", f.u16(806)));

    // The labels, the rate and the reel as the library's reader takes them, without the pixels.
    StillImageMetadata metadata;
    metadata.frameRate = Kv::FrameRate(0);
    loadCineonImage(fullPath(path), Core::Data(), &metadata);
    const float rate = f.f32(1724);
    lines.push_back(format("timecode     %s", labelText(metadata.timecode).c_str()));
    lines.push_back(format("keykode      %s%s", labelText(metadata.keykode).c_str(),
                           metadata.keykode.is_valid() ? (" (" + f.text(1680, 32) + ")").c_str() : ""));
    if (rate > 0.0f && metadata.frameRate != 0)
        lines.push_back(format("frame rate   %g in the file (%g, the nearest known rate)", double(rate),
                               Kv::getFramesPerSecond(metadata.frameRate)));
    else
        lines.push_back("frame rate   none in the file");
    const LightweightString<char> reel = metadata.attributes.get("reel_id");
    lines.push_back(format("reel         %s", reel.empty() ? "none" : reel.c_str()));

    const bool log = config_int("dpx_force_log", 0) != 0 || (transfer == 3 && config_int("dpx_force_linear", 0) == 0);
    if (descriptor == 100)
        lines.push_back("loads as     10-bit RGB (format 35) from 4:2:2, then 8-bit ARGB for display");
    else if (depth == 10)
        lines.push_back(log ? "loads as     ARGB, 8 bits a component, through the film curve (logarithmic)"
                            : "loads as     ARGB, 8 bits a component (linear), or 10-bit RGB when asked");
    else
        lines.push_back(format("loads as     RGB at %u bits a component as stored", depth));
    return true;
}

}  // namespace KvCli
