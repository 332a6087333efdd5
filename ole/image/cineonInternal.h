#pragma once
// What the three sources of the Cineon and DPX module share and no caller needs: the settings
// of DPX reading, and the limits that keep a load inside the memory a file can justify.

#include <cstdint>

#include "ole/platform/os/OS.h"

namespace Kv::Image::CineonDetail {

// The settings, read once when the library loads.
struct DpxSettings {
    bool forceLinear;              // "dpx_force_linear": every 10-bit DPX read as linear
    bool forceLog;                 // "dpx_force_log": every 10-bit DPX read as logarithmic
    unsigned short blackLevel;     // "dpx_log2lin_black_level": the code that maps to 0
    unsigned short whiteLevel;     // "dpx_log2lin_white_level": the code that maps to 255
};
const DpxSettings& dpxSettings();

// A header is a promise the file need not keep, and memory is taken by the header's numbers.
// So a load gives a picture at most kBytesPerFileByte bytes of memory for each byte of pixel
// data that the file holds behind its image offset (every stored form takes at least two
// thirds of a byte of file for each byte of memory it fills), and never less than
// kUnbackedBytes, so that a file cut short still loads as far as it goes. Past that, a picture
// is refused before anything is allocated. Thumbnails are measured by the picture they make,
// not by the scan, and always pass for a whole file.
constexpr std::uint64_t kUnbackedBytes = 1u << 20;
constexpr std::uint64_t kBytesPerFileByte = 4;

// True when a picture of this shape can be made: its line and its memory fit the 32-bit
// arithmetic of a surface, and the memory is justified by `fileBytes` as above.
bool pictureFits(unsigned int width, unsigned int height, unsigned int bitsPerPixel,
                 std::uint64_t fileBytes);

// The bytes from the file's position to its end.
std::uint64_t bytesAhead(iFile& file);
// The bytes from `offset` to the file's end; 0 for an offset at or past it.
std::uint64_t bytesFrom(iFile& file, std::uint64_t offset);

}  // namespace Kv::Image::CineonDetail
