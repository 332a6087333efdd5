// A host of the installed library: one header, one link, and the basics work.
#include <ole/kvimage.h>

#include <cstdio>

namespace {
struct Frame : iObject {
    int number = 42;
};
}  // namespace

int main()
{
    std::printf("%s\n", imageDllVersionStr());

    LightweightString<char> name("reel");
    LightweightString<char> copy = name;
    copy += "-001";
    Kv::Ptr<Frame> frame(new Frame);
    Kv::Ptr<Frame> shared = frame;

    std::printf("%s %s %d\n", name.c_str(), copy.c_str(), shared->number);
    return name == LightweightString<char>("reel") && copy.size() == 8 && shared->number == 42 ? 0 : 1;
}
