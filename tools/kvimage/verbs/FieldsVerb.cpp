// kvimage fields and kvimage weave: a frame of interlaced video split into its two fields, and
// two fields woven back into a frame, through the library's field functions.

#include <cstdio>
#include <string>

#include "../ImageFiles.h"
#include "../Verb.h"
#include "ole/image/ImageConvert.h"

namespace KvCli {

namespace {

using Kv::Image::Surface;

// A picture to be filled with the layout of `like` at another height, top line first.
Surface shapedLike(const Surface& like, unsigned int height)
{
    Surface s(like.getWidth(), height, like.getDataFormat(), true, like.getBitsPerComponent(), 0, 0);
    s.setIsTopDown(true);
    return s;
}

int runFields(const Invocation& invocation)
{
    const auto& args = invocation.arguments();
    std::string error;
    Surface frame;
    if (!loadPicture(args[0], 0, frame, error)) {
        std::fprintf(stderr, "kvimage fields: %s: %s\n", args[0].c_str(), error.c_str());
        return ExitFailure;
    }
    if (frame.getHeight() < 2) {
        std::fprintf(stderr, "kvimage fields: %s: a frame of %u line%s has no pair of fields\n", args[0].c_str(),
                     frame.getHeight(), frame.getHeight() == 1 ? "" : "s");
        return ExitFailure;
    }
    if (frame.getHeight() % 2)
        std::fprintf(stderr, "kvimage fields: note: the last of the %u lines has no partner in the other field and is left out\n",
                     frame.getHeight());
    Surface upper = shapedLike(frame, frame.getHeight() / 2), lower = shapedLike(frame, frame.getHeight() / 2);
    if (!ImageConverter::deInterleave(frame, upper, lower)) {
        std::fprintf(stderr, "kvimage fields: %s: the frame does not split into two fields\n", args[0].c_str());
        return ExitFailure;
    }
    for (int i = 0; i < 2; ++i) {
        if (!savePicture(i ? lower : upper, args[1 + i], false, error)) {
            std::fprintf(stderr, "kvimage fields: %s: %s\n", args[1 + i].c_str(), error.c_str());
            return ExitFailure;
        }
    }
    std::printf("%s: %u x %u -> upper field %s, lower field %s, %u lines each\n", args[0].c_str(), frame.getWidth(),
                frame.getHeight(), args[1].c_str(), args[2].c_str(), upper.getHeight());
    return ExitOk;
}

int runWeave(const Invocation& invocation)
{
    const auto& args = invocation.arguments();
    std::string error;
    Surface fields[2];
    for (int i = 0; i < 2; ++i) {
        if (!loadPicture(args[i], 0, fields[i], error)) {
            std::fprintf(stderr, "kvimage weave: %s: %s\n", args[i].c_str(), error.c_str());
            return ExitFailure;
        }
    }
    if (fields[0].getWidth() != fields[1].getWidth() || fields[0].getHeight() != fields[1].getHeight()) {
        std::fprintf(stderr, "kvimage weave: the fields differ in size: %u x %u and %u x %u\n", fields[0].getWidth(),
                     fields[0].getHeight(), fields[1].getWidth(), fields[1].getHeight());
        return ExitFailure;
    }
    Surface frame = shapedLike(fields[0], 2 * fields[0].getHeight());
    if (!ImageConverter::interleave(fields[0], fields[1], frame, true)) {
        std::fprintf(stderr, "kvimage weave: the fields do not weave into a frame\n");
        return ExitFailure;
    }
    if (!savePicture(frame, args[2], false, error)) {
        std::fprintf(stderr, "kvimage weave: %s: %s\n", args[2].c_str(), error.c_str());
        return ExitFailure;
    }
    std::printf("%s + %s -> %s, %u x %u\n", args[0].c_str(), args[1].c_str(), args[2].c_str(), frame.getWidth(),
                frame.getHeight());
    return ExitOk;
}

}  // namespace

const Verb fieldsVerb = {
    "fields",
    "split a frame of interlaced video into its two fields",
    "FRAME FIELD1 FIELD2",
    "FIELD1 gets the frame's upper lines (0, 2, 4, ...), FIELD2 the lower (1, 3, 5, ...), each\n"
    "half the frame's height, written as TGA. `kvimage weave` puts them back together.",
    {},
    3,
    3,
    runFields,
};

const Verb weaveVerb = {
    "weave",
    "weave two fields into a frame of interlaced video",
    "FIELD1 FIELD2 FRAME",
    "FIELD1 gives the frame's upper lines (0, 2, 4, ...), FIELD2 the lower; the two must be of\n"
    "one size. The frame is twice their height, written as TGA.",
    {},
    3,
    3,
    runWeave,
};

}  // namespace KvCli
