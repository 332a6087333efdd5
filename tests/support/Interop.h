#pragma once
// Interop helpers: make real third-party files with the field's tools (ImageMagick, ffmpeg,
// oiiotool) at test time, and read pictures back with OpenImageIO as the peer decoder.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>

#include "tests/support/TestSupport.h"

namespace Interop {

// ImageMagick by its Debian path: another `convert` may stand earlier on PATH.
inline const char* const kMagick = "/usr/bin/convert";
inline const char* const kFfmpeg = "/usr/bin/ffmpeg";
inline const char* const kOiiotool = "/usr/bin/oiiotool";

// Runs a shell command quietly; true when it exited 0.
inline bool run(const std::string& command)
{
    const std::string quiet = command + " >/dev/null 2>&1";
    return std::system(quiet.c_str()) == 0;
}

// A picture as the peer decoded it: 8 bits a channel, top line first, always four channels
// (R, G, B, A; alpha 255 where the file has none).
struct PeerImage {
    int width = 0;
    int height = 0;
    int fileChannels = 0;
    int subimages = 0;
    std::vector<unsigned char> rgba;

    const unsigned char* pixel(int x, int y) const { return &rgba[(std::size_t(y) * width + x) * 4]; }
};

// Reads one subimage (a GIF frame) with OpenImageIO; width 0 on failure.
inline PeerImage readWithOIIO(const std::string& path, int subimage = 0)
{
    PeerImage out;
    auto in = OIIO::ImageInput::open(path);
    if (!in) return out;
    int count = 0;
    while (in->seek_subimage(count, 0)) ++count;
    out.subimages = count;
    if (!in->seek_subimage(subimage, 0)) return out;
    const OIIO::ImageSpec& spec = in->spec();
    const int channels = spec.nchannels;
    std::vector<unsigned char> data(std::size_t(spec.width) * spec.height * channels);
    if (!in->read_image(subimage, 0, 0, channels, OIIO::TypeDesc::UINT8, data.data())) return out;
    out.width = spec.width;
    out.height = spec.height;
    out.fileChannels = channels;
    out.rgba.resize(std::size_t(spec.width) * spec.height * 4);
    for (std::size_t i = 0; i < std::size_t(spec.width) * spec.height; ++i) {
        const unsigned char* p = &data[i * channels];
        unsigned char* q = &out.rgba[i * 4];
        q[0] = p[0];
        q[1] = channels > 1 ? p[1] : p[0];
        q[2] = channels > 2 ? p[2] : p[0];
        q[3] = channels > 3 ? p[3] : (channels == 2 ? p[1] : 255);
    }
    return out;
}

}  // namespace Interop
