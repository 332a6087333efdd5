#pragma once
// Picture files as the tool sees them: which codec a file is for, and loading and saving a
// Surface through the library's own codecs.

#include <string>
#include <vector>

#include "ole/image/KvSurface.h"

namespace KvCli {

enum class FileType { Unknown, Missing, TGA, GIF, Cineon, DPX };

const char* fileTypeName(FileType type);

// By content where the format has a signature (GIF8, the Cineon and DPX magic numbers),
// otherwise by extension (.tga).
FileType detectFileType(const std::string& path);

// What a load asks for beyond the file's name.
struct LoadRequest {
    unsigned int frame = 0;             // of a GIF
    unsigned int width = 0, height = 0;  // a film scan's thumbnail at least this big; 0: full size
    Kv::Image::Format format = Kv::Image::InvalidFormat;  // a film scan's wished layout
    unsigned short depth = 0;
};

// Loads one picture, top line first; false with `error` set on failure.
bool loadPicture(const std::string& path, const LoadRequest& request, Kv::Image::Surface& picture,
                 std::string& error);
bool loadPicture(const std::string& path, unsigned int frame, Kv::Image::Surface& picture,
                 std::string& error);

// What a save takes beyond the picture and the file's name.
struct SaveOptions {
    bool raw = false;      // TGA: uncompressed
    std::string timecode;  // DPX: "hh:mm:ss:ff"
    std::string keykode;   // DPX: "KU1234561234+12"
    std::string film;      // DPX: "academy", "3-perf" or "16mm"
};

// By the name: a TGA file, run-length encoded unless `raw` (a picture in another layout is
// converted to 8-bit ARGB first); a 10-bit DPX file with its labels; for a .raw or .yuv name,
// the picture's bytes as they lie in memory.
bool savePicture(const Kv::Image::Surface& picture, const std::string& path, const SaveOptions& options,
                 std::string& error);
bool savePicture(const Kv::Image::Surface& picture, const std::string& path, bool raw,
                 std::string& error);

// The lines `kvimage info` prints for a file.
bool describeFile(const std::string& path, std::vector<std::string>& lines, std::string& error);

}  // namespace KvCli
