// kvimage info: what a picture file holds, as the library reads it.

#include <cstdio>
#include <string>
#include <vector>

#include "../ImageFiles.h"
#include "../Verb.h"

namespace KvCli {

namespace {

int runInfo(const Invocation& invocation)
{
    int status = ExitOk;
    const bool several = invocation.arguments().size() > 1;
    for (const std::string& path : invocation.arguments()) {
        std::vector<std::string> lines;
        std::string error;
        if (!describeFile(path, lines, error)) {
            std::fprintf(stderr, "kvimage info: %s: %s\n", path.c_str(), error.c_str());
            status = ExitFailure;
            continue;
        }
        if (several) std::printf("%s\n", path.c_str());
        for (const std::string& line : lines) std::printf("%s%s\n", several ? "  " : "", line.c_str());
    }
    return status;
}

}  // namespace

const Verb infoVerb = {
    "info",
    "show what a TGA, GIF, Cineon or DPX file holds",
    "FILE...",
    "For TGA: image type, size, depth, orientation and id field. For GIF: the logical\n"
    "screen, the frames with their sizes, palettes and transparency, and their delays.\n"
    "For DPX: size, descriptor, depth, packing, transfer, colorimetric, byte order, image\n"
    "offset, and the timecode, key number, frame rate and reel (named after the file's\n"
    "folder) as the library reads them. For Cineon: size, depth, packing, orientation, byte\n"
    "order and image offset. Each ends with what a load turns the file into.",
    {},
    1,
    -1,
    runInfo,
};

}  // namespace KvCli
