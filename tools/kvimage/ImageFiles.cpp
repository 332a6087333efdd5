#include "ImageFiles.h"

#include "FilmScans.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <strings.h>
#include <unistd.h>

#include "Text.h"
#include "ole/image/Gif.h"
#include "ole/image/ImageConvert.h"
#include "ole/image/tgaload.h"
#include "ole/platform/text/InputStream.h"
#include "ole/platform/text/KvText.h"

namespace KvCli {

using namespace Kv::Image;

namespace {

LightweightString<wchar_t> widePath(const std::string& path) { return fromUTF8(path.c_str()); }

bool hasExtension(const std::string& path, const char* extension)
{
    const std::size_t dot = path.rfind('.');
    return dot != std::string::npos && strcasecmp(path.c_str() + dot + 1, extension) == 0;
}

// The 18-byte header of a TGA file, as far as `info` shows it.
struct TgaHeader {
    int idLength = 0, imageType = 0, width = 0, height = 0, depth = 0, descriptor = 0;
};

bool readTgaHeader(const std::string& path, TgaHeader& header)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return false;
    unsigned char bytes[18];
    const bool ok = std::fread(bytes, 1, 18, file) == 18;
    std::fclose(file);
    if (!ok) return false;
    header.idLength = bytes[0];
    header.imageType = bytes[2];
    header.width = bytes[12] | bytes[13] << 8;
    header.height = bytes[14] | bytes[15] << 8;
    header.depth = bytes[16];
    header.descriptor = bytes[17];
    return true;
}

}  // namespace

const char* fileTypeName(FileType type)
{
    switch (type) {
    case FileType::TGA: return "TGA";
    case FileType::GIF: return "GIF";
    case FileType::Cineon: return "Cineon";
    case FileType::DPX: return "DPX";
    default: return "unknown";
    }
}

FileType detectFileType(const std::string& path)
{
    if (access(path.c_str(), R_OK) != 0) return FileType::Missing;
    if (Gif::isGifFile(widePath(path))) return FileType::GIF;
    switch (filmScanType(path)) {
    case FilmScan::Cineon: return FileType::Cineon;
    case FilmScan::DPX: return FileType::DPX;
    case FilmScan::None: break;
    }
    if (hasExtension(path, "tga")) return FileType::TGA;
    return FileType::Unknown;
}

namespace {

bool loadAsStored(const std::string& path, unsigned int frame, Surface& picture, std::string& error)
{
    switch (detectFileType(path)) {
    case FileType::Cineon:
    case FileType::DPX:
        return loadFilmScan(path, 0, 0, InvalidFormat, 0, picture, error);
    case FileType::TGA: {
        SimpleFileInputStream stream(widePath(path));
        if (!stream.isValid()) {
            error = "cannot open the file";
            return false;
        }
        if (!loadTGAImage(&stream, picture)) {
            error = "not a TGA file this reader takes (true colour, 24 or 32 bits, raw or RLE)";
            return false;
        }
        return true;
    }
    case FileType::GIF: {
        Gif gif(widePath(path), frame == 0 ? 0 : 1);
        if (gif.frames.size == 0) {
            error = "no picture in the GIF file";
            return false;
        }
        if (frame >= gif.frames.size) {
            error = format("the file has %u frames; frame %u asked for", gif.frames.size, frame);
            return false;
        }
        picture = gif.getImage(frame);
        if (!picture.valid()) {
            error = "the frame has no pixels (larger than the screen, or too large for the file)";
            return false;
        }
        return true;
    }
    case FileType::Missing:
        error = "no such file, or it cannot be read";
        return false;
    default:
        error = "unknown file type (the tool reads TGA, GIF, Cineon and DPX)";
        return false;
    }
}

// The picture as 8-bit ARGB, top line first, for a TGA file.
bool displayable(const Surface& picture, Surface& argb, std::string& error)
{
    if (picture.getDataFormat() == ARGB && picture.getBitsPerComponent() == 8) {
        argb = picture;
        return true;
    }
    argb.init(picture.getWidth(), picture.getHeight(), ARGB, true, 8, 0, 0);
    argb.setIsTopDown(true);
    if (!ImageConverter::convert(picture, argb)) {
        error = "no conversion of this layout back to 8-bit ARGB for a TGA file";
        return false;
    }
    return true;
}

// The bytes of the picture as they lie in memory: for a raw file that other tools read with
// the layout and size given by hand.
bool saveRaw(const Surface& picture, const std::string& path, std::string& error)
{
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) {
        error = "cannot write the file";
        return false;
    }
    const std::size_t bytes = std::min<std::size_t>(picture.getImageSize(), picture.holderBytesFrom(picture.getDataPtr()));
    const bool written = std::fwrite(picture.getDataPtr(), 1, bytes, file) == bytes;
    if (std::fclose(file) != 0 || !written) {
        error = "cannot write the file";
        return false;
    }
    return true;
}

}  // namespace

bool loadPicture(const std::string& path, const LoadRequest& request, Surface& picture, std::string& error)
{
    const FileType type = detectFileType(path);
    if (type == FileType::Cineon || type == FileType::DPX)
        return loadFilmScan(path, request.width, request.height, request.format, request.depth, picture, error);
    if (!loadAsStored(path, request.frame, picture, error)) return false;
    // TGA and GIF lay the top line first in memory, whatever order the file keeps, and leave
    // the flag as it was; the verbs that count lines, and the converters, go by the flag.
    picture.setIsTopDown(true);
    return true;
}

bool loadPicture(const std::string& path, unsigned int frame, Surface& picture, std::string& error)
{
    LoadRequest request;
    request.frame = frame;
    return loadPicture(path, request, picture, error);
}

bool savePicture(const Surface& picture, const std::string& path, const SaveOptions& options, std::string& error)
{
    if (hasExtension(path, "raw") || hasExtension(path, "yuv")) return saveRaw(picture, path, error);
    if (hasExtension(path, "dpx")) return saveDpx(picture, path, {options.timecode, options.keykode, options.film}, error);
    if (!hasExtension(path, "tga")) {
        error = "the tool writes TGA (.tga) and DPX (.dpx) files, or the bytes of the picture (.raw, .yuv)";
        return false;
    }
    Surface argb;
    if (!displayable(picture, argb, error)) return false;
    if (!saveTGAImage(argb, widePath(path), !options.raw)) {
        error = "cannot write the file";
        return false;
    }
    return true;
}

bool savePicture(const Surface& picture, const std::string& path, bool raw, std::string& error)
{
    SaveOptions options;
    options.raw = raw;
    return savePicture(picture, path, options, error);
}

bool describeFile(const std::string& path, std::vector<std::string>& lines, std::string& error)
{
    const FileType type = detectFileType(path);
    if (type == FileType::TGA) {
        TgaHeader header;
        if (!readTgaHeader(path, header)) {
            error = "cannot read a TGA header";
            return false;
        }
        lines.push_back(format("type         TGA, image type %d (%s)", header.imageType,
                               header.imageType == 2    ? "true colour"
                               : header.imageType == 10 ? "true colour, run-length encoded"
                                                        : "not read by this library"));
        lines.push_back(format("size         %d x %d", header.width, header.height));
        lines.push_back(format("depth        %d bits a pixel in the file%s", header.depth,
                               header.depth == 24 ? " (alpha 255 on load)" : ""));
        lines.push_back(format("orientation  %s", (header.descriptor & 32) ? "top line first" : "bottom line first"));
        if (header.idLength) lines.push_back(format("id field     %d bytes", header.idLength));
        lines.push_back("loads as     ARGB, 8 bits a component, top line first");
        return true;
    }
    if (type == FileType::GIF) {
        Gif gif(widePath(path), 1);
        lines.push_back("type         GIF");
        lines.push_back(format("screen       %u x %u", gif.width, gif.height));
        lines.push_back(format("palette      %s", gif.globalPalette ? "global" : "none (frames bring their own)"));
        lines.push_back(format("frames       %u", gif.frames.size));
        std::string delays = "delays       ";
        for (unsigned int i = 0; i < gif.frames.size; ++i) {
            delays += std::to_string(gif.frames.items[i]->delay);
            delays += i + 1 < gif.frames.size ? " " : " (hundredths of a second)";
        }
        if (gif.frames.size) lines.push_back(delays);
        for (unsigned int i = 0; i < gif.frames.size; ++i) {
            const GifFrame* frame = gif.frames.items[i];
            lines.push_back(format("frame %-5u  %u x %u at %u, %u%s%s%s", i, frame->width, frame->height,
                                   frame->left, frame->top, frame->ownsPalette ? ", local palette" : "",
                                   frame->hasTransparency ? ", transparent colour" : "",
                                   frame->pixels ? "" : ", not decoded"));
        }
        lines.push_back("loads as     ARGB, 8 bits a component, the size of the screen");
        return true;
    }
    if (type == FileType::Cineon) return describeFilmScan(path, FilmScan::Cineon, lines, error);
    if (type == FileType::DPX) return describeFilmScan(path, FilmScan::DPX, lines, error);
    error = type == FileType::Missing ? "no such file, or it cannot be read"
                                      : "unknown file type (the tool reads TGA, GIF, Cineon and DPX)";
    return false;
}

}  // namespace KvCli
