// kvimage convert: reads TGA, GIF, Cineon or DPX pictures and writes TGA or DPX files, one
// picture or a batch, on the way through the library's converters into another layout, depth or
// size if asked. A film scan asked for a smaller size is read as a thumbnail.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "ole/image/ImageConvert.h"
#include "ole/image/iImageConvert.h"

#include "../ImageFiles.h"
#include "../Layouts.h"
#include "../ProgressBar.h"
#include "../Verb.h"

namespace KvCli {

namespace {

const Option convertOptions[] = {
    {"raw", 0, nullptr, "write uncompressed TGA (the default is run-length encoded)"},
    {"frame", 'f', "N", "the GIF frame to take (default 0)"},
    {"to", 't', "DIR", "convert every FILE into DIR, as <name>.tga (or --ext)"},
    {"ext", 0, "EXT", "the type of the files --to writes: tga (default), dpx, raw"},
    {"format", 0, "CODE", "convert into this pixel layout (ARGB, UYVY, NV12, 35, ...)"},
    {"depth", 0, "BITS", "bits a component of the converted picture (8, 10, 16)"},
    {"size", 0, "WxH", "resize to W by H pixels (a film scan is read as a thumbnail first)"},
    {"timecode", 0, "HH:MM:SS:FF", "DPX output: the SMPTE timecode (';' before FF for drop frame)"},
    {"keykode", 0, "KEY", "DPX output: the film key number, e.g. KU1234561234+12"},
    {"film", 0, "GAUGE", "DPX output: the key's film, academy (default), 3-perf or 16mm"},
};

using Kv::Image::Surface;

// What the picture goes through between reading and writing.
struct Reshape {
    bool any = false;
    bool hasFormat = false;
    Kv::Image::Format format = Kv::Image::ARGB;
    unsigned short depth = 0;
    unsigned int width = 0, height = 0;
};

bool isYuv(Kv::Image::Format f)
{
    using namespace Kv::Image;
    switch (f) {
    case UYVY: case YUY2: case YUYV: case YVYU: case NV12: case YV12: case M101: case M102: case M103: case M104:
        return true;
    default:
        return false;
    }
}

// The picture in the asked layout, depth and size, through ImageConverter::convert (which
// hands resizing and the colour-space changes to the plug-ins). YUV comes out in video range
// with the matrix its size implies.
bool reshape(Surface& picture, const Reshape& r, std::string& error)
{
    if (!r.any) return true;
    const Kv::Image::Format format = r.hasFormat ? r.format : picture.getDataFormat();
    const unsigned short depth = r.depth ? r.depth : r.hasFormat ? 0 : picture.getBitsPerComponent();
    Surface target;
    target.init(r.width ? r.width : picture.getWidth(), r.height ? r.height : picture.getHeight(), format, true,
                depth, 0, 0);
    target.setIsTopDown(true);
    target.setIsVideoGamutScaled(isYuv(format));
    // The library's own repacking narrows samples but never widens them (it answers yes and
    // leaves the picture as it was): a deeper picture of the same layout is the plug-ins' work.
    const bool widening = format == picture.getDataFormat() && target.getBitsPerComponent() > picture.getBitsPerComponent() &&
                          target.getWidth() == picture.getWidth() && target.getHeight() == picture.getHeight();
    const bool done = target.valid() && (widening ? iImageConvert::doConvert(picture, target)
                                                  : ImageConverter::convert(picture, target));
    if (!done) {
        error = "the library and its plug-ins have no conversion from " + codeText(picture.getDataFormat()) + "/" +
                std::to_string(picture.getBitsPerComponent()) + " " + std::to_string(picture.getWidth()) + "x" +
                std::to_string(picture.getHeight()) + " to " + codeText(format) + "/" +
                std::to_string(target.getBitsPerComponent()) + " " + std::to_string(target.getWidth()) + "x" +
                std::to_string(target.getHeight());
        return false;
    }
    picture = target;
    return true;
}

bool convertOne(const std::string& in, const std::string& out, const LoadRequest& request, const Reshape& r,
                const SaveOptions& options, std::string& error)
{
    Surface picture;
    if (!loadPicture(in, request, picture, error)) return false;
    if (!reshape(picture, r, error)) return false;
    return savePicture(picture, out, options, error);
}

// The --format, --depth and --size options; false after a message on a bad value.
bool readReshape(const Invocation& invocation, Reshape& r)
{
    if (invocation.has("format")) {
        const std::string text = invocation.value("format");
        if (!parseFormat(text, r.format)) {
            std::fprintf(stderr, "kvimage convert: --format takes a layout code (ARGB, UYVY, 35, 0x...), not '%s'\n",
                         text.c_str());
            return false;
        }
        r.hasFormat = r.any = true;
    }
    if (invocation.has("depth")) {
        const std::string text = invocation.value("depth");
        char* end = nullptr;
        const unsigned long depth = std::strtoul(text.c_str(), &end, 10);
        if (text.empty() || *end || (depth != 8 && depth != 10 && depth != 16)) {
            std::fprintf(stderr, "kvimage convert: --depth takes 8, 10 or 16, not '%s'\n", text.c_str());
            return false;
        }
        r.depth = static_cast<unsigned short>(depth);
        r.any = true;
    }
    if (invocation.has("size")) {
        const std::string text = invocation.value("size");
        if (!parseSize(text, r.width, r.height)) {
            std::fprintf(stderr, "kvimage convert: --size takes WxH, each from 1 to 65535, not '%s'\n", text.c_str());
            return false;
        }
        r.any = true;
    }
    return true;
}

int runConvert(const Invocation& invocation)
{
    const bool raw = invocation.has("raw");
    const std::string frameText = invocation.value("frame", "0");
    char* end = nullptr;
    const unsigned long frame = std::strtoul(frameText.c_str(), &end, 10);
    if (frameText.empty() || *end || frame > 0xFFFFu) {
        std::fprintf(stderr, "kvimage convert: --frame takes a whole number, not '%s'\n", frameText.c_str());
        return ExitUsage;
    }
    Reshape reshape;
    if (!readReshape(invocation, reshape)) return ExitUsage;
    // A film scan is read at the asked size already, as far as powers of two go; the converter
    // does the rest. A 10-bit layout asked for keeps a linear scan's 10 bits.
    LoadRequest request;
    request.frame = unsigned(frame);
    request.width = reshape.width;
    request.height = reshape.height;
    if (reshape.hasFormat) request.format = reshape.format;
    request.depth = reshape.depth;
    SaveOptions options;
    options.raw = raw;
    options.timecode = invocation.value("timecode");
    options.keykode = invocation.value("keykode");
    options.film = invocation.value("film", "academy");
    if (options.film != "academy" && options.film != "3-perf" && options.film != "16mm") {
        std::fprintf(stderr, "kvimage convert: --film takes academy, 3-perf or 16mm, not '%s'\n", options.film.c_str());
        return ExitUsage;
    }
    const std::string ext = invocation.value("ext", "tga");
    if (ext != "tga" && ext != "dpx" && ext != "raw") {
        std::fprintf(stderr, "kvimage convert: --ext takes tga, dpx or raw, not '%s'\n", ext.c_str());
        return ExitUsage;
    }
    const auto& args = invocation.arguments();

    if (!invocation.has("to")) {
        if (args.size() != 2) {
            std::fprintf(stderr, "kvimage convert: give IN and OUT, or FILE... --to DIR\n");
            return ExitUsage;
        }
        std::string error;
        if (!convertOne(args[0], args[1], request, reshape, options, error)) {
            std::fprintf(stderr, "kvimage convert: %s: %s\n", args[0].c_str(), error.c_str());
            return ExitFailure;
        }
        return ExitOk;
    }

    const std::filesystem::path dir = invocation.value("to");
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (!std::filesystem::is_directory(dir)) {
        std::fprintf(stderr, "kvimage convert: cannot make the folder '%s'\n", dir.c_str());
        return ExitFailure;
    }
    ProgressBar bar("converting", args.size());
    int failures = 0;
    for (const std::string& in : args) {
        const std::string out = (dir / std::filesystem::path(in).stem()).string() + "." + ext;
        std::string error;
        if (!convertOne(in, out, request, reshape, options, error)) {
            std::fprintf(stderr, "kvimage convert: %s: %s\n", in.c_str(), error.c_str());
            ++failures;
        }
        bar.advance();
    }
    bar.finish();
    if (failures) std::fprintf(stderr, "kvimage convert: %d of %zu files failed\n", failures, args.size());
    return failures ? ExitFailure : ExitOk;
}

}  // namespace

const Verb convertVerb = {
    "convert",
    "read TGA, GIF, Cineon or DPX pictures and write TGA or DPX files",
    "[options] IN OUT | [options] FILE... --to DIR",
    "The picture is read by the library's own codecs (a GIF frame comes out at the size of\n"
    "the logical screen, transparency by colour; a logarithmic scan through the film curve)\n"
    "and written by the output's name: 32-bit TGA, top line first, or 10-bit RGB DPX with the\n"
    "--timecode and --keykode given (the timecode counts at the project's frame rate, setting\n"
    "project_frame_rate). With --size a Cineon or DPX scan is read as a thumbnail, every n-th\n"
    "line and column for the largest power of two n that keeps it at least that big.\n"
    "--format, --depth and --size put it through the library's converters first (YUV in video\n"
    "range, BT.601 below 720 lines, BT.709 from there). A .tga output is converted back to 8-bit\n"
    "ARGB for the file, which shows what the round trip keeps; a .raw or .yuv output takes the\n"
    "converted bytes as they are, for ffmpeg -f rawvideo and the like.",
    convertOptions,
    1,
    -1,
    runConvert,
};

}  // namespace KvCli
