// Drives the Cineon reader over any bytes, through a file system in memory: whole pictures,
// a thumbnail and a picture of no size, which must each lie in their own memory and be 8-bit
// ARGB whatever was asked for. A picture read is then saved as Cineon, which writes a header
// pass of 2048 bytes and no pixels.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ole/image/cineon.h"
#include "ole/platform/settings/KvLog.h"
#include "tests/image/CineonFiles.h"

using namespace Kv::Image;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    CineonFiles::silenceReports();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static CineonFiles::MemoryFiles* files = new CineonFiles::MemoryFiles;
    files->files[L"/scans/in.cin"].assign(reinterpret_cast<const char*>(data), size);
    constexpr unsigned int any = 1u << 20;
    const Core::Data requests[] = {
        Core::Data(any, any, ARGB, 8, 0, true),
        Core::Data(any, any, RGB, 16, 0, true),
        Core::Data(32, 24, ARGB, 8, 0, true),
        Core::Data(),
    };
    for (const Core::Data& request : requests) {
        StillImageMetadata meta;
        const Surface s = loadCineonImage(L"/scans/in.cin", request, &meta);
        if (!s.valid()) continue;
        CineonFiles::abortUnlessInMemory(s);
        // A DPX file may reach here too; a Cineon one is always 8-bit ARGB.
        FourByteReorderable<unsigned int> first{0};
        if (size >= 4) std::memcpy(&first.value, data, 4);
        const bool cineon = CINFile::isValidSignature(first);
        if (cineon && (s.getDataFormat() != ARGB || s.getBitsPerComponent() != 8)) std::abort();
        if (cineon && meta.attributes.has("reel_id")) std::abort();
        if (saveCineonImage(s, L"/out/back.cin") != (s.getImageSize() != 0 ? 1 : 0)) std::abort();
        if (s.getImageSize() != 0 && files->files[L"/out/back.cin"].size() != 2048) std::abort();
    }
    return 0;
}
