#include "ole/image/tgaload.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>

#include "ole/Kv/KvException.h"
#include "ole/platform/os/KvAssert.h"
#include "ole/platform/os/OS.h"
#include "ole/platform/settings/KvLog.h"
#include "ole/platform/text/InputStream.h"
#include "ole/platform/text/KvText.h"

using namespace Kv::Image;

namespace {

constexpr unsigned int kHeaderBytes = 18;
constexpr unsigned char kTopLineFirst = 0x20;  // descriptor bit: the file starts with the top line
constexpr unsigned char kWrittenDescriptor = kTopLineFirst | 8;  // and 8 bits of alpha
constexpr std::size_t kMaxPacketPixels = 128;
constexpr std::size_t kMaxPacketBytes = 1 + kMaxPacketPixels * 4;

// Types 2 (plain) and 10 (run-length encoded) differ only in bit 3.
bool isTrueColour(int type) { return (type & ~8) == 2; }

// Bytes from `p` to the end of the memory behind the picture. A host's picture that is not a
// Surface cannot tell, and its descriptors are all there is to go by.
std::size_t bytesBehind(const Base& image, const unsigned char* p)
{
    if (const auto* surface = dynamic_cast<const Surface*>(&image)) return surface->holderBytesFrom(p);
    return std::numeric_limits<std::size_t>::max();
}

// The densest way a TGA file can describe pixels is a run packet: a header byte and one pixel
// give 128 of them. So the bytes left after the header describe at most
// (left / (1 + bytesPerPixel) + 1) * 128 pixels, packed or plain, and a header that promises
// more is refused before anything is allocated. The picture's memory then stays below 128 bytes
// for each byte of the file, while a plain file that was merely cut short still loads as far
// as it goes. A stream that cannot tell its length is taken at its word.
bool sizeIsCredible(unsigned int width, unsigned int height, unsigned int bytesPerPixel,
                    std::uint64_t left)
{
    const std::uint64_t pixels = std::uint64_t(width) * height;
    if (pixels * 4 > std::numeric_limits<unsigned int>::max()) return false;  // a surface counts its bytes in 32 bits
    if (left == InputStream::unknownSize) return true;
    return pixels <= (left / (1 + bytesPerPixel) + 1) * kMaxPacketPixels;
}

inline std::uint32_t loadWord(const unsigned char* p)
{
    std::uint32_t word;
    std::memcpy(&word, p, 4);
    return word;
}

// A 24-bit file pixel (blue, green, red) as an opaque 32-bit one.
inline std::uint32_t opaquePixel(const unsigned char* p)
{
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 | 0xFF000000u;
}

// Copies `count` file pixels of `bytesPerPixel` bytes into packed 32-bit pixels.
void copyPixels(const unsigned char* from, unsigned char* to, std::size_t count, unsigned int bytesPerPixel)
{
    if (bytesPerPixel == 4) {
        std::memcpy(to, from, count * 4);
        return;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t pixel = opaquePixel(from + i * 3);
        std::memcpy(to + i * 4, &pixel, 4);
    }
}

void fillPixels(unsigned char* to, std::uint32_t pixel, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) std::memcpy(to + i * 4, &pixel, 4);
}

// The pixel data, taken from the stream in large blocks, so that packet headers and pixels are
// read from memory and the stream is called once a block, not once a byte or a packet.
class BlockReader {
public:
    explicit BlockReader(InputStream* in) : in_(in)
    {
        // The whole rest of a small file; blocks of kBlockBytes from a large one.
        const std::uint64_t left = in->remaining();
        size_ = left < kBlockBytes ? std::max<std::size_t>(std::size_t(left), kMaxPacketBytes) : kBlockBytes;
        buffer_.reset(new unsigned char[size_]);
        next_ = end_ = buffer_.get();
    }

    // Makes at least `bytes` bytes (at most a whole packet) lie at next(). False when the
    // stream ends first; what it had is still there, available() bytes.
    bool need(std::size_t bytes)
    {
        if (available() >= bytes) return true;
        if (ended_) return false;
        const std::size_t kept = available();
        std::memmove(buffer_.get(), next_, kept);
        next_ = buffer_.get();
        const unsigned int wanted = unsigned(size_ - kept);
        const unsigned int got = in_->read(wanted, buffer_.get() + kept);
        ended_ = got < wanted;
        end_ = next_ + kept + got;
        return available() >= bytes;
    }

    const unsigned char* next() const { return next_; }
    std::size_t available() const { return std::size_t(end_ - next_); }
    void advance(std::size_t bytes) { next_ += bytes; }

private:
    static constexpr std::size_t kBlockBytes = 256 * 1024;

    InputStream* in_;
    std::unique_ptr<unsigned char[]> buffer_;
    std::size_t size_;
    const unsigned char* next_;
    const unsigned char* end_;
    bool ended_ = false;
};

// Each line reader writes at most `room` pixels from the line's start (the memory that is left
// in the picture's holder there), reads on past them to keep its place in the file, and
// answers false when the file has ended.

bool readPlainLine32(InputStream* in, unsigned char* line, unsigned int width, std::size_t room)
{
    const unsigned int bytes = width * 4;
    const unsigned int fits = unsigned(std::min<std::size_t>(width, room)) * 4;
    if (in->read(fits, line) < fits) return false;
    if (fits < bytes) in->skip(bytes - fits);
    return true;
}

bool readPlainLine24(BlockReader& reader, unsigned char* line, unsigned int width, std::size_t room)
{
    std::size_t done = 0;
    while (done < width) {
        if (!reader.need(3)) return false;  // a pixel cut short stays as it was
        const std::size_t n = std::min<std::size_t>(width - done, reader.available() / 3);
        if (done < room) copyPixels(reader.next(), line + done * 4, std::min(n, room - done), 3);
        reader.advance(n * 3);
        done += n;
    }
    return true;
}

// Packets are not cut at the end of the line: the last one writes on into the memory behind
// it, and the next line starts with a fresh packet.
bool readPackedLine(BlockReader& reader, unsigned char* line, unsigned int width, std::size_t room,
                    unsigned int bytesPerPixel)
{
    std::size_t count = 0;
    while (count < width) {
        if (!reader.need(1 + bytesPerPixel)) return false;
        const unsigned char* packet = reader.next();
        const std::size_t n = (packet[0] & 0x7F) + 1;
        const std::size_t fits = count < room ? std::min(n, room - count) : 0;
        if (packet[0] & 0x80) {
            const std::uint32_t pixel = bytesPerPixel == 4 ? loadWord(packet + 1) : opaquePixel(packet + 1);
            if (fits) fillPixels(line + count * 4, pixel, fits);
            reader.advance(1 + bytesPerPixel);
        } else {
            if (!reader.need(1 + n * bytesPerPixel)) {
                // The file ends inside the packet: its whole pixels still count.
                const std::size_t whole = (reader.available() - 1) / bytesPerPixel;
                if (fits) copyPixels(reader.next() + 1, line + count * 4, std::min(fits, whole), bytesPerPixel);
                return false;
            }
            if (fits) copyPixels(reader.next() + 1, line + count * 4, fits, bytesPerPixel);
            reader.advance(1 + n * bytesPerPixel);
        }
        count += n;
    }
    return true;
}

bool loadUnguarded(InputStream* in, Surface& image)
{
    unsigned char header[kHeaderBytes];
    for (unsigned char& byte : header) {
        const int c = in->readByte();
        if (c < 0) return false;
        byte = static_cast<unsigned char>(c);
    }
    const unsigned int idLength = header[0];
    const unsigned int type = header[2];
    const unsigned int width = header[12] | header[13] << 8;
    const unsigned int height = header[14] | header[15] << 8;
    const unsigned int depth = header[16];
    const bool topLineFirst = header[17] & kTopLineFirst;
    if ((depth != 24 && depth != 32) || !isTrueColour(int(type))) return false;
    in->skip(idLength);

    const unsigned int bytesPerPixel = depth / 8;
    if (!sizeIsCredible(width, height, bytesPerPixel, in->remaining())) return false;
    const bool keep = image.getDataPtr() && image.getWidth() == width && image.getHeight() == height &&
                      image.getDataFormat() == ARGB;
    if (!keep) image.init(width, height, ARGB, true, 0, 0, 0);
    // A picture of no lines is read once it is described, though it has no memory to fill.
    if (height == 0) return true;
    if (!image.getDataPtr()) return false;

    const bool packed = type == 10;
    std::unique_ptr<BlockReader> reader;
    if (packed || bytesPerPixel == 3) reader = std::make_unique<BlockReader>(in);
    // Lines are stored top first, whatever the order of the file.
    for (unsigned int i = 0; i < height; ++i) {
        unsigned char* line = image.getRawLinePtr(topLineFirst ? i : height - 1 - i);
        const std::size_t room = image.holderBytesFrom(line) / 4;
        const bool more = packed               ? readPackedLine(*reader, line, width, room, bytesPerPixel)
                          : bytesPerPixel == 4 ? readPlainLine32(in, line, width, room)
                                               : readPlainLine24(*reader, line, width, room);
        if (!more) break;  // the file has ended: the lines it does not reach stay as they were
    }
    return true;
}

// The writer's packets over one line of 32-bit pixels, into `out`, which has room for
// width * 8 bytes: the worst line, all raw, takes width * 4 bytes and a header per 128 pixels.
// Pixels compare as whole words, alpha included. A raw packet ends before a pixel that equals
// its predecessor, so it takes in the first pixel of a following pair: A B B B goes out as
// raw A B, run 2 B.
std::size_t encodeLine(const unsigned char* line, unsigned int width, unsigned char* out)
{
    unsigned char* o = out;
    const std::size_t last = std::size_t(width) - 1;
    std::size_t p = 0;
    while (width != 0 && p <= last) {
        if (p == last) {
            *o++ = 0;
            std::memcpy(o, line + p * 4, 4);
            o += 4;
            break;
        }
        const std::uint32_t first = loadWord(line + p * 4);
        std::size_t n = 2;
        if (loadWord(line + (p + 1) * 4) == first) {
            while (n < kMaxPacketPixels && p + n <= last && loadWord(line + (p + n) * 4) == first) ++n;
            *o++ = static_cast<unsigned char>(0x80 | (n - 1));
            std::memcpy(o, &first, 4);
            o += 4;
        } else {
            std::uint32_t previous = loadWord(line + (p + 1) * 4);
            while (n < kMaxPacketPixels && p + n <= last) {
                const std::uint32_t next = loadWord(line + (p + n) * 4);
                if (next == previous) break;
                previous = next;
                ++n;
            }
            *o++ = static_cast<unsigned char>(n - 1);
            std::memcpy(o, line + p * 4, n * 4);
            o += n * 4;
        }
        p += n;
    }
    return std::size_t(o - out);
}

unsigned int readWord(InputStream* in)
{
    const int low = in->readByte();
    const int high = in->readByte();
    return unsigned(std::max(low, 0)) | unsigned(std::max(high, 0)) << 8;
}

}  // namespace

int getTGAImageSize(InputStream* in, int& width, int& height)
{
    if (!in || !in->isValid()) return -1;
    in->skip(2);
    if (!isTrueColour(in->readByte())) return -1;
    in->skip(9);
    width = int(readWord(in));
    height = int(readWord(in));
    const int depth = in->readByte();
    return depth == 24 || depth == 32 ? depth : -1;
}

bool loadTGAImage(InputStream* in, Surface& image)
{
    if (!in) return false;
    try {
        return loadUnguarded(in, image);
    } catch (const Kv::Exception::Base&) {
        LogBoth("loadTGAImage() failed\n");
        return false;
    }
}

bool saveTGAImage(const Base& sourceImage, LightweightString<wchar_t> path, bool compressed)
{
    const unsigned char* data = sourceImage.getDataPtr();
    if (!data || sourceImage.getImageSize() == 0) return false;
    Kv::Ptr<iFile> file = OS()->fileSystem()->open(path, 2, 3, 0, 0);
    if (!file) return false;

    const unsigned int width = sourceImage.getWidth();
    const unsigned int height = sourceImage.getHeight();
    const unsigned int stride = sourceImage.getStride();
    unsigned char header[kHeaderBytes] = {};
    header[2] = compressed ? 10 : 2;
    header[12] = static_cast<unsigned char>(width);
    header[13] = static_cast<unsigned char>(width >> 8);
    header[14] = static_cast<unsigned char>(height);
    header[15] = static_cast<unsigned char>(height >> 8);
    header[16] = 32;
    header[17] = kWrittenDescriptor;
    file->write(header, kHeaderBytes);

    // Lines go out in the order they lie in memory, first line first: a bottom-up picture is
    // stored upside down under a descriptor that says top line first.
    const std::size_t lineBytes = std::size_t(width) * 4;
    if (!compressed) {
        if (stride == width * sourceImage.getBitsPerPixel() / 8) {
            const std::size_t bytes = std::min<std::size_t>(sourceImage.getImageSize(), bytesBehind(sourceImage, data));
            file->write(data, unsigned(bytes));
        } else {
            const unsigned char* line = data;
            for (unsigned int y = 0; y < height && bytesBehind(sourceImage, line) >= lineBytes; ++y, line += stride)
                file->write(line, unsigned(lineBytes));
        }
        return true;
    }

    // Every pixel is taken as a 32-bit word, whatever the format says.
    KV_ASSERT(sourceImage.getDataFormat() == Kv::Image::ARGB);
    std::unique_ptr<unsigned char[]> scratch(new unsigned char[std::size_t(width) * 8]);
    const unsigned char* line = data;
    for (unsigned int y = 0; y < height && bytesBehind(sourceImage, line) >= lineBytes; ++y, line += stride) {
        const std::size_t bytes = encodeLine(line, width, scratch.get());
        file->write(scratch.get(), unsigned(bytes));
    }
    return true;
}

bool saveTGAImage(const Base& image, LightweightString<char> path, bool compressed)
{
    return saveTGAImage(image, Kv::WStringFromAscii(path.c_str()), compressed);
}

unsigned int countSimilarPixels(unsigned int* first, unsigned int* last)
{
    if (first >= last || first[1] != first[0]) return 0;
    unsigned int n = 2;
    while (n < 129 && first + n <= last && first[n] == first[0]) ++n;
    return n;
}

unsigned int countDifferentPixels(unsigned int* first, unsigned int* last)
{
    if (first >= last || first[2] == first[0]) return 1;
    unsigned int count = 2;
    // Each further pixel counts once its successor is seen to differ from it.
    for (const unsigned int* p = first + 2; p < last && p[1] != p[0] && count < 128; ++p) ++count;
    return count;
}
