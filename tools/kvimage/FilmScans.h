#pragma once
// Cineon and DPX files as the tool sees them: reading at full size or as a thumbnail, writing
// DPX with its timecode and film key number, and the header fields a colourist asks about.

#include <string>
#include <vector>

#include "ole/image/KvSurface.h"

namespace KvCli {

enum class FilmScan { None, Cineon, DPX };

// By the first four bytes, in either byte order.
FilmScan filmScanType(const std::string& path);

// Loads at most width x height (0 for the file's own size): a scan larger than that is read
// every n-th line and column, n a power of two, so that what comes back is at least that big.
// `format` and `depth` are what the caller would like (InvalidFormat, 0: 8-bit ARGB); a linear
// 10-bit DPX asked for format 35 keeps its 10 bits.
bool loadFilmScan(const std::string& path, unsigned int width, unsigned int height, Kv::Image::Format format,
                  unsigned short depth, Kv::Image::Surface& picture, std::string& error);

// What goes into a DPX file beside the pixels. Empty texts leave the fields zero.
struct DpxLabels {
    std::string timecode;  // "hh:mm:ss:ff", ';' before the frames for drop frame
    std::string keykode;   // 15 places: "KU1234561234+12"
    std::string film;      // "academy" (35 mm 4-perf, the default), "3-perf" or "16mm"
};

// Writes a 10-bit RGB DPX (pictures in other layouts are converted to it first).
bool saveDpx(const Kv::Image::Surface& picture, const std::string& path, const DpxLabels& labels, std::string& error);

// The lines `kvimage info` prints for a film scan.
bool describeFilmScan(const std::string& path, FilmScan type, std::vector<std::string>& lines, std::string& error);

}  // namespace KvCli
