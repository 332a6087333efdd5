// Drives the GIF decoder over arbitrary bytes, the way a file reaches it, and checks each frame's
// pixels against a plain decoder written here from the public steps: the table operations of
// GifFrame, with the string written byte by byte from a stack, through the interlace passes.
// Both must read the same codes and leave the input at the same byte.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "ole/image/Gif.h"

namespace {

// A whole file of this size can decode to about 500 MB of screen at most, which stays below the
// fuzzer's cap on a single allocation.
constexpr std::size_t kLargestInput = 4000;
// Larger screens are decoded but not expanded to pictures, which would only slow the run.
constexpr std::uint64_t kLargestPicture = 1u << 20;

void check(bool condition)
{
    if (!condition) std::abort();
}

// One string, from the table as it stands, onto the frame's pixels.
void sendPlain(GifFrame& f, unsigned int code)
{
    if (code > 4100) return;
    unsigned char stack[4100];
    unsigned int n = 0;
    int c = int(code);
    do {
        if (n == 4100) return;  // a chain of 4101 or more writes nothing
        stack[n++] = f.table[c].lastByte;
        c = f.table[c].prefix;
    } while (c >= 0);
    const std::uint64_t w = f.width;
    while (n) {
        const unsigned char byte = stack[--n];
        if (f.writePosition < f.pixelCount) f.pixels[f.writePosition++] = byte;
        if (f.interlacePass == 0 || w == 0 || f.writePosition % w != 0) continue;
        f.writePosition += f.interlacePass <= 2 ? 7 * w : f.interlacePass == 3 ? 3 * w : w;
        if (f.writePosition >= f.pixelCount) {
            static const unsigned int startLine[] = {0, 4, 2, 1, 0};
            f.interlacePass = f.interlacePass == 4 ? 0 : f.interlacePass + 1;
            f.writePosition = startLine[f.interlacePass == 0 ? 4 : f.interlacePass - 1] * w;
        }
    }
}

void decodePlain(GifFrame& f, GifInput& in)
{
    f.minCodeSize = in.byte();
    f.writePosition = f.blockBytesLeft = f.bitBuffer = f.bitCount = 0;
    if (f.minCodeSize > 11) return;
    f.clearTable();
    unsigned int previous = f.getCode(in);
    if (previous == f.clearCode) {
        f.clearTable();
        previous = f.getCode(in);
    }
    sendPlain(f, previous);
    unsigned int current = f.getCode(in);
    for (;;) {
        if (f.table[current].used) {
            sendPlain(f, current);
            f.getNextEntry();
            f.addToTable(previous, current, f.nextEntry);
        } else {
            f.addToTable(previous, previous, current);
            sendPlain(f, current);
        }
        unsigned int next = f.getCode(in);
        if (next == f.clearCode) {
            f.clearTable();
            current = f.getCode(in);
            sendPlain(f, current);
            next = f.getCode(in);
        }
        if (next == f.endCode) break;
        previous = current;
        current = next;
    }
}

// The steps of Gif::readStream, each frame's data decoded twice.
void compareFrames(const uint8_t* data, size_t size)
{
    Gif gif(nullptr, 0, 1);
    GifInput in(data, size);
    gif.readHeader(in);
    while (gif.skipToNextImage(in)) {
        GifFrame* frame = gif.addFrame();
        frame->readImageHeader(in);
        if (frame->width > gif.width || frame->height > gif.height) continue;
        const std::size_t at = size - std::size_t(in.remaining());
        const unsigned int pass = frame->interlacePass;
        frame->decompress(in);
        if (!frame->pixels) continue;
        GifFrame plain(frame->delay, frame->palette);
        plain.width = frame->width;
        plain.height = frame->height;
        plain.pixelCount = frame->pixelCount;
        plain.interlacePass = pass;
        plain.pixels = static_cast<unsigned char*>(OS()->memory()->allocate(plain.pixelCount));
        std::memset(plain.pixels, 0, plain.pixelCount);
        GifInput again(data + at, size - at);
        decodePlain(plain, again);
        check(again.remaining() == in.remaining());
        check(std::memcmp(plain.pixels, frame->pixels, plain.pixelCount) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > kLargestInput) return 0;
    Gif gif(data, size, 1);
    check(size >= 4 || gif.frames.size == 0);
    const bool small = std::uint64_t(gif.width) * gif.height <= kLargestPicture;
    for (unsigned int i = 0; small && i <= gif.frames.size && i < 64; ++i) {
        const Kv::Image::Surface picture = gif.getImage(i);
        check(!picture.valid() || (picture.getWidth() == gif.width && picture.getHeight() == gif.height));
    }
    Gif first(data, size, 0);
    check(first.frames.size <= 1);
    if (size >= 4 && std::memcmp(data, "GIF8", 4) == 0) compareFrames(data, size);
    return 0;
}
