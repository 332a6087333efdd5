#pragma once
// TGA files, read and written by the library itself: true-colour pictures of 24 or 32 bits,
// plain (image type 2) or run-length encoded (type 10). A picture in memory is always ARGB at 8
// bits, whose bytes (blue, green, red, alpha) are those of a 32-bit TGA pixel, so that lines
// pass between file and memory as they are.

#include "ole/image/KvSurface.h"
#include "ole/misc/LightweightString.h"
#include "ole/platform/os/KvPlatformExport.h"

class InputStream;

// Reads the header from where the stream stands and stores width and height; returns the pixel
// depth, 24 or 32, or -1 for an invalid stream, an image type other than 2 or 10, or another
// depth (the size is stored even then).
KV_EXPORT int getTGAImageSize(InputStream* in, int& width, int& height);

// Reads header and pixels from where the stream stands into an ARGB picture, top line first
// whatever the file's order. A surface that already holds an ARGB picture of the same size
// keeps its memory. A file that ends early leaves the pixels it does not reach as they were.
// False for a file this reader does not take, or one whose header promises more pixels than
// the rest of the stream could possibly describe.
KV_EXPORT bool loadTGAImage(InputStream* in, Kv::Image::Surface& image);

// Writes a 32-bit top-down file (descriptor 0x28), run-length encoded when `compressed`. The
// lines go out in the order they lie in memory. False for an empty picture or a file that
// cannot be opened.
KV_EXPORT bool saveTGAImage(const Kv::Image::Base& image, LightweightString<wchar_t> path, bool compressed);
// The same with a narrow path, widened byte by byte.
KV_EXPORT bool saveTGAImage(const Kv::Image::Base& image, LightweightString<char> path, bool compressed);

// Run-length helpers over 32-bit pixels from `first` to `last` inclusive. They differ from the
// writer's own packet rules, and callers depend on those differences:
// countSimilarPixels gives 0 unless the first two pixels are equal, else the length of the run
// that starts at `first`, up to 129.
KV_EXPORT unsigned int countSimilarPixels(unsigned int* first, unsigned int* last);
// countDifferentPixels gives 1 when `first` is `last` or when the third pixel equals the first
// (the third is read even when it lies one past `last`); otherwise 2 plus one for each further
// pixel whose successor (up to `last`) differs from it, up to 128.
KV_EXPORT unsigned int countDifferentPixels(unsigned int* first, unsigned int* last);
