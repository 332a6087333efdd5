// Drives the TGA reader over any bytes: the size query, a load into a fresh surface and a
// second load into the surface that now holds a picture (which keeps or replaces its memory).
// A small picture is then written run-length encoded and read back, and must come back the
// same: the writer's packets and the reader's agree.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ole/image/tgaload.h"
#include "ole/platform/text/InputStream.h"
#include "ole/platform/text/KvText.h"

namespace {

// One scratch file for the process, removed when it exits.
struct ScratchFile {
    std::string name = "/tmp/fuzz_tga_" + std::to_string(::getpid()) + ".tga";
    LightweightString<wchar_t> path = fromUTF8(name.c_str());
    ~ScratchFile() { ::unlink(name.c_str()); }
};

const LightweightString<wchar_t>& scratchPath()
{
    static const ScratchFile file;
    return file.path;
}

void roundTrip(const Kv::Image::Surface& image)
{
    const std::size_t bytes = std::size_t(image.getWidth()) * image.getHeight() * 4;
    if (bytes == 0 || bytes > (1u << 20) || image.getStride() != image.getWidth() * 4) return;
    if (!saveTGAImage(image, scratchPath(), true)) std::abort();
    SimpleFileInputStream in(scratchPath());
    Kv::Image::Surface back;
    if (!loadTGAImage(&in, back)) std::abort();
    if (back.getWidth() != image.getWidth() || back.getHeight() != image.getHeight()) std::abort();
    if (std::memcmp(back.getDataPtr(), image.getDataPtr(), bytes) != 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    MemoryInputStream in(data, size);
    int width = 0, height = 0;
    const int depth = getTGAImageSize(&in, width, height);
    if (depth != -1 && depth != 24 && depth != 32) std::abort();
    in.rewind();
    Kv::Image::Surface image;
    const bool loaded = loadTGAImage(&in, image);
    if (loaded && (image.getDataFormat() != Kv::Image::ARGB || int(image.getWidth()) != width ||
                   int(image.getHeight()) != height))
        std::abort();
    in.rewind();
    if (loadTGAImage(&in, image) && image.valid() && image.getHeight() > 0) roundTrip(image);
    return 0;
}
