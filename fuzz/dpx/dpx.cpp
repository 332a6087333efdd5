// Drives the DPX reader over any bytes, through a file system in memory: the description
// alone, whole pictures in the formats callers ask for, a thumbnail, with the metadata. Each
// picture made must lie in its own memory. A small picture is then written as DPX with the
// labels it came with and read back, and must come back at its size.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "ole/image/cineon.h"
#include "ole/platform/settings/KvLog.h"
#include "tests/image/CineonFiles.h"

using namespace Kv::Image;

namespace {

void roundTrip(const Surface& s, StillImageMetadata& meta)
{
    const std::uint64_t bytes = std::uint64_t(s.getWidth()) * s.getHeight() * 4;
    if (!s.valid() || bytes == 0 || bytes > (1u << 20)) return;
    const Format format = s.getDataFormat();
    if (format != ARGB && format != RGB && format != Format(35)) return;
    if (!saveDPXImage(s, L"/out/DPX/back.dpx", &meta.timecode, &meta.keykode, eMediumVideo, 0.0, 3)) std::abort();
    const Surface back = loadCineonImage(L"/out/DPX/back.dpx", Core::Data(1 << 20, 1 << 20, InvalidFormat, 0, 0, true), &meta);
    if (back.getWidth() != s.getWidth() || back.getHeight() != s.getHeight()) std::abort();
    CineonFiles::abortUnlessInMemory(back);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    CineonFiles::silenceReports();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static CineonFiles::MemoryFiles* files = new CineonFiles::MemoryFiles;
    files->files[L"/scans/DPX/in.dpx"].assign(reinterpret_cast<const char*>(data), size);
    constexpr unsigned int any = 1u << 20;
    const Core::Data requests[] = {
        Core::Data(),
        Core::Data(any, any, ARGB, 8, 0, true),
        Core::Data(any, any, Format(35), 10, 0, true),
        Core::Data(any, any, RGB, 16, 0, true),
        Core::Data(any, any, RGB, 8, 0, true),
        Core::Data(64, 48, InvalidFormat, 0, 0, true),
    };
    for (const Core::Data& request : requests) {
        StillImageMetadata meta;
        const Surface s = loadCineonImage(L"/scans/DPX/in.dpx", request, &meta);
        CineonFiles::abortUnlessInMemory(s);
        if (&request == &requests[1] || &request == &requests[2]) roundTrip(s, meta);
    }
    return 0;
}
