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
    "show what a TGA or GIF file holds",
    "FILE...",
    "For TGA: image type, size, depth, orientation and id field. For GIF: the logical\n"
    "screen, the frames with their sizes, palettes and transparency, and their delays.",
    {},
    1,
    -1,
    runInfo,
};

}  // namespace KvCli
