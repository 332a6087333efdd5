#pragma once
// Picture files as the tool sees them: which codec a file is for, and loading and saving a
// Surface through the library's own codecs.

#include <string>
#include <vector>

#include "ole/image/KvSurface.h"

namespace KvCli {

enum class FileType { Unknown, Missing, TGA, GIF };

const char* fileTypeName(FileType type);

// By content where the format has a signature (GIF8), otherwise by extension (.tga).
FileType detectFileType(const std::string& path);

// Loads one picture (a GIF frame by its index); false with `error` set on failure.
bool loadPicture(const std::string& path, unsigned int frame, Kv::Image::Surface& picture,
                 std::string& error);

// Writes a TGA file, run-length encoded unless `raw` (a picture in another layout is converted
// to 8-bit ARGB first), or, for a .raw or .yuv name, the picture's bytes as they lie in memory.
bool savePicture(const Kv::Image::Surface& picture, const std::string& path, bool raw,
                 std::string& error);

// The lines `kvimage info` prints for a file.
bool describeFile(const std::string& path, std::vector<std::string>& lines, std::string& error);

}  // namespace KvCli
