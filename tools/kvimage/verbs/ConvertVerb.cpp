// kvimage convert: reads TGA or GIF pictures and writes TGA files, one picture or a batch.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "../ImageFiles.h"
#include "../ProgressBar.h"
#include "../Verb.h"

namespace KvCli {

namespace {

const Option convertOptions[] = {
    {"raw", 0, nullptr, "write uncompressed TGA (the default is run-length encoded)"},
    {"frame", 'f', "N", "the GIF frame to take (default 0)"},
    {"to", 't', "DIR", "convert every FILE into DIR, as <name>.tga"},
};

bool convertOne(const std::string& in, const std::string& out, unsigned int frame, bool raw,
                std::string& error)
{
    Kv::Image::Surface picture;
    if (!loadPicture(in, frame, picture, error)) return false;
    return savePicture(picture, out, raw, error);
}

int runConvert(const Invocation& invocation)
{
    const bool raw = invocation.has("raw");
    const std::string frameText = invocation.value("frame", "0");
    char* end = nullptr;
    const unsigned long frame = std::strtoul(frameText.c_str(), &end, 10);
    if (frameText.empty() || *end || frame > 0xFFFFu) {
        std::fprintf(stderr, "kvimage convert: --frame takes a whole number, not '%s'\n", frameText.c_str());
        return ExitUsage;
    }
    const auto& args = invocation.arguments();

    if (!invocation.has("to")) {
        if (args.size() != 2) {
            std::fprintf(stderr, "kvimage convert: give IN and OUT, or FILE... --to DIR\n");
            return ExitUsage;
        }
        std::string error;
        if (!convertOne(args[0], args[1], unsigned(frame), raw, error)) {
            std::fprintf(stderr, "kvimage convert: %s: %s\n", args[0].c_str(), error.c_str());
            return ExitFailure;
        }
        return ExitOk;
    }

    const std::filesystem::path dir = invocation.value("to");
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (!std::filesystem::is_directory(dir)) {
        std::fprintf(stderr, "kvimage convert: cannot make the folder '%s'\n", dir.c_str());
        return ExitFailure;
    }
    ProgressBar bar("converting", args.size());
    int failures = 0;
    for (const std::string& in : args) {
        const std::string out = (dir / std::filesystem::path(in).stem()).string() + ".tga";
        std::string error;
        if (!convertOne(in, out, unsigned(frame), raw, error)) {
            std::fprintf(stderr, "kvimage convert: %s: %s\n", in.c_str(), error.c_str());
            ++failures;
        }
        bar.advance();
    }
    bar.finish();
    if (failures) std::fprintf(stderr, "kvimage convert: %d of %zu files failed\n", failures, args.size());
    return failures ? ExitFailure : ExitOk;
}

}  // namespace

const Verb convertVerb = {
    "convert",
    "read TGA or GIF pictures and write TGA files",
    "[options] IN OUT | [options] FILE... --to DIR",
    "The picture is read by the library's own codecs (a GIF frame comes out at the size of\n"
    "the logical screen, transparency by colour) and written as 32-bit TGA, top line first.",
    convertOptions,
    1,
    -1,
    runConvert,
};

}  // namespace KvCli
