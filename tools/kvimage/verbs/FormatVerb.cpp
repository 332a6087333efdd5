// kvimage format: what the library knows of a pixel layout: its code, whether it counts as
// compressed, its bits per component and per pixel at the usual depths, alpha, and whether it
// is a DNX or MPEG compression. Without arguments it lists the layouts handled as pixels.

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "../Layouts.h"
#include "../Verb.h"
#include "ole/image/KvImageDefs.h"
#include "ole/platform/settings/KvLog.h"

namespace KvCli {

namespace {

using namespace Kv::Image;

// The layouts the library really handles as pixels.
const Format pixelFormats[] = {ARGB, BGRA, RGB, BGR3, BGR4, UYVY, YUY2, YVYU, YUYV, YV12, NV12,
                               M101, M102, M103, M104, DIB, Format(0), Format(31), Format(35),
                               Format(36), Format(37)};

// The library's own "UNEXPECTED BPP" notes are about the question asked, not news here.
class QuietLog final : public iLogSink {
public:
    QuietLog() : previous_(Kv::Platform::setLogSink(this)) {}
    ~QuietLog() { Kv::Platform::setLogSink(previous_); }
    void write(Channel, const char*) override {}

private:
    iLogSink* previous_;
};

// The packed layouts 31, 35, 38, 39 exist at 10 bits only and 36, 37 at 16: asking the table
// at another depth is a mistake the library reports, so they are shown at their own.
int fixedDepth(Format format)
{
    switch (int(format)) {
    case 31: case 35: case 38: case 39: return 10;
    case 36: case 37: return 16;
    default: return 0;
    }
}

void describe(Format format)
{
    QuietLog quiet;
    const unsigned short bpc = getBitsPerComponentFromFormat(format);
    std::string bpp;
    if (const int depth = fixedDepth(format)) {
        bpp = "bpp " + std::to_string(getBitsPerPixel(format, depth)) + " at " + std::to_string(depth) + " bits";
    } else {
        bpp = "bpp " + std::to_string(getBitsPerPixel(format, 8)) + "/" +
              std::to_string(getBitsPerPixel(format, 10)) + "/" +
              std::to_string(getBitsPerPixel(format, 16)) + " at 8/10/16 bits";
    }
    std::printf("%-10s 0x%08X  %-12s bpc %-2u  %-26s %s%s%s\n", codeText(format).c_str(),
                unsigned(format), isCompressedFormat(format) ? "compressed" : "uncompressed",
                unsigned(bpc), bpp.c_str(), hasAlphaChannel(format) ? "alpha " : "",
                isDNX(format) ? "DNX " : "", isMpeg(format) ? "MPEG" : "");
}

int runFormat(const Invocation& invocation)
{
    if (invocation.arguments().empty()) {
        for (Format format : pixelFormats) describe(format);
        return ExitOk;
    }
    int status = ExitOk;
    for (const std::string& text : invocation.arguments()) {
        Format format;
        if (!parseFormat(text, format)) {
            std::fprintf(stderr, "kvimage format: '%s' is neither a four-character code nor a number\n",
                         text.c_str());
            status = ExitUsage;
            continue;
        }
        describe(format);
    }
    return status;
}

}  // namespace

const Verb formatVerb = {
    "format",
    "what the library knows of pixel layouts",
    "[CODE...]",
    "CODE is a four-character code (ARGB, UYVY, \" RGB\" or RGB, v210), a number (35) or 0x\n"
    "followed by hex digits. Without codes, lists the layouts the library handles as pixels.\n"
    "bpp is shown for 8, 10 and 16 bits a component, as a picture of that depth would get it;\n"
    "the packed 10- and 16-bit layouts at their own depth.",
    {},
    0,
    -1,
    runFormat,
};

}  // namespace KvCli
