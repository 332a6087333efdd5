// The GIF decoder: the file's blocks, the LZW decoder of each frame and the expansion of a frame
// into a 32-bit picture.

#include "ole/image/Gif.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "ole/platform/text/KvText.h"

namespace {

// The highest entry a code may name, and the longest string a code may spell: a chain that
// would put a 4101st byte on the stack loops or is otherwise corrupt.
constexpr unsigned int kLastEntry = 4100;
constexpr unsigned int kLongestString = 4100;
// A clear empties the used flags of the entries below this one; the last entry keeps its flag.
constexpr unsigned int kClearedEntries = 4100;
constexpr unsigned int kLargestMinCodeSize = 11;

// The most bytes the LZW data in `bytes` bytes can decode to. A code is at least one bit wide and
// spells at most kLongestString bytes; the end of the input can give two codes that consumed no
// byte (the first and the current one, which are written before the end code is looked at).
// Every allocation made for decoded pixels is held to this, so that memory follows the size of
// the file and not what its header claims.
constexpr std::uint64_t mostBytesFrom(std::uint64_t bytes)
{
    return (8 * bytes + 2) * kLongestString;
}

// A picture's bytes are counted in 32 bits by the surface; four bytes a pixel.
constexpr std::uint64_t kLargestPicturePixels = 0xFFFFFFFFull / 4;

constexpr std::size_t kFilePiece = 64 * 1024;

// Pixel memory comes straight from the memory service, so that a host sees and can refuse each
// block; null when it is refused.
unsigned char* allocatePixels(std::size_t bytes) noexcept
{
    try {
        return static_cast<unsigned char*>(OS()->memory()->allocate(bytes));
    } catch (...) {
        return nullptr;
    }
}

void releasePixels(unsigned char* block) noexcept
{
    if (block) OS()->memory()->release(block);
}

void readPalette(GifInput& in, GifPalette& palette, unsigned int flags)
{
    const int count = 2 << (flags & 7);
    for (int i = 0; i < count; ++i) {
        RgbTriple_<unsigned char> colour;
        colour.r = static_cast<unsigned char>(in.byte());
        colour.g = static_cast<unsigned char>(in.byte());
        colour.b = static_cast<unsigned char>(in.byte());
        palette.setCol(i, colour);
    }
}

bool startsWithGif8(const unsigned char* bytes)
{
    return bytes[0] == 'G' && bytes[1] == 'I' && bytes[2] == 'F' && bytes[3] == '8';
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// GifPalette

GifPalette::GifPalette() noexcept
{
    for (int i = 0; i < 256; ++i) {
        const auto grey = static_cast<unsigned char>(i);
        entries[i] = {grey, grey, grey};
    }
}

// ---------------------------------------------------------------------------------------------
// GifInput

GifInput::GifInput(const unsigned char* data, std::size_t size) noexcept
    : cur_(data), end_(data ? data + size : data), buffer_(nullptr), fileLeft_(0),
      sourceSize_(data ? size : 0), ended_(false)
{
}

GifInput::GifInput(Kv::Ptr<iFile> file)
    : cur_(nullptr), end_(nullptr), file_(std::move(file)), buffer_(nullptr), fileLeft_(0),
      sourceSize_(0), ended_(false)
{
    if (!file_) return;
    const std::uint64_t size = file_->size();
    const std::uint64_t at = file_->tell();
    sourceSize_ = size;
    fileLeft_ = size > at ? size - at : 0;
    buffer_ = new unsigned char[kFilePiece];
}

GifInput::~GifInput() { delete[] buffer_; }

bool GifInput::refill()
{
    if (!ended_ && buffer_) {
        const unsigned int got = file_->read(buffer_, unsigned(kFilePiece));
        if (got != 0) {
            fileLeft_ -= std::min<std::uint64_t>(got, fileLeft_);
            cur_ = buffer_;
            end_ = buffer_ + got;
            return true;
        }
        fileLeft_ = 0;
    }
    ended_ = true;
    return false;
}

void GifInput::skip(std::uint64_t bytes)
{
    while (bytes != 0) {
        if (cur_ == end_ && !refill()) return;
        const std::uint64_t take = std::min<std::uint64_t>(bytes, std::uint64_t(end_ - cur_));
        cur_ += take;
        bytes -= take;
    }
}

std::uint64_t GifInput::remaining() const noexcept { return std::uint64_t(end_ - cur_) + fileLeft_; }

// ---------------------------------------------------------------------------------------------
// GifFrame

struct GifFrame::Workspace {
    TableEntry table[kTableEntries];
    unsigned char stack[kStackBytes];

    // What the decoding loop of decompress knows beyond the table. Between two clears an entry
    // below 4100 is made at most once, and the roots never change, so an entry made on a root or
    // on an entry made since the last clear spells the same string until the next clear: its
    // prefix's string, which lies among the strings decoded so far at `at`, and its own last
    // byte, `length` bytes in all. `madeIn` holds the count of clears when such an entry was
    // made, and the highest count for a root; any other entry holds a lower count than `clears`.
    struct Known {
        unsigned int madeIn;
        unsigned int at;
        unsigned int length;
    };
    Known known[kTableEntries];
    unsigned int clears;
    // The entries below 4100 made since the last clear: the only ones a clear has to find in use
    // beside the roots.
    unsigned short made[kTableEntries];
    unsigned int madeCount;

    // An entry never written spells one byte, 0. Nothing is known yet; the stack and the list of
    // entries made are written before they are read.
    Workspace() noexcept : known(), clears(1), madeCount(0)
    {
        for (TableEntry& entry : table) entry = {0, 0, 0, -1};
    }
};

GifFrame::GifFrame(unsigned int delay_, GifPalette* globalPalette)
    : delay(delay_), width(0), height(0), pixelCount(0), interlacePass(0), palette(globalPalette),
      ownsPalette(0), left(0), top(0), pixels(nullptr), writePosition(0), transparentColour(0),
      hasTransparency(0), table(nullptr), minCodeSize(0), codeSize(0), clearCode(0), endCode(0),
      codeLimit(0), nextEntry(0), stack(nullptr), blockBytesLeft(0), bitBuffer(0), bitCount(0),
      workspace_(nullptr)
{
}

GifFrame::~GifFrame()
{
    releasePixels(pixels);
    if (ownsPalette) delete palette;
    releaseWorkspace();
}

GifFrame::Workspace* GifFrame::ensureWorkspace()
{
    if (!workspace_) {
        workspace_ = new Workspace;
        table = workspace_->table;
        stack = workspace_->stack;
    }
    return workspace_;
}

void GifFrame::releaseWorkspace() noexcept
{
    delete workspace_;
    workspace_ = nullptr;
    table = nullptr;
    stack = nullptr;
}

void GifFrame::setTransparentCol(unsigned int colour)
{
    transparentColour = colour;
    hasTransparency = 1;
}

void GifFrame::readImageHeader(GifInput& in)
{
    left = in.readWord();
    top = in.readWord();
    width = in.readWord();
    height = in.readWord();
    const unsigned int flags = in.byte();
    interlacePass = (flags >> 6) & 1;
    if (flags & 0x80) {
        if (!ownsPalette) {
            palette = new GifPalette;
            ownsPalette = 1;
        }
        readPalette(in, *palette, flags);
    }
    pixelCount = width * height;  // at most 65535 squared: fits
}

void GifFrame::initTable()
{
    // A wider minimum would put the clear code beyond the table; decompress never gets here with
    // one.
    if (minCodeSize > kLargestMinCodeSize) return;
    ensureWorkspace();
    clearCode = 1u << minCodeSize;
    endCode = clearCode + 1;
    nextEntry = clearCode + 2;
    codeSize = minCodeSize + 1;
    codeLimit = clearCode * 2 - 1;
    for (unsigned int i = 0; i < clearCode; ++i) {
        const auto byte = static_cast<unsigned char>(i);
        table[i] = {1, byte, byte, -1};
        workspace_->known[i].length = 1;
    }
}

void GifFrame::clearTable()
{
    ensureWorkspace();
    for (unsigned int i = 0; i < kClearedEntries; ++i) table[i].used = 0;
    workspace_->madeCount = 0;
    initTable();
}

// The steps of the decoder work on the frame's public state, so that the decoding loop can have
// them inline while the public operations stay what they are.
namespace {

#define KV_GIF_INLINE [[gnu::always_inline]] inline

KV_GIF_INLINE unsigned int readCode(GifFrame& f, GifInput& in)
{
    while (f.bitCount < f.codeSize) {
        // A sub-block size of 0 is taken for a block of 256 and more: the count wraps, and the
        // bytes that follow are read as data until the end code.
        if (f.blockBytesLeft == 0) f.blockBytesLeft = in.byte();
        const int byte = in.next();
        if (byte < 0) return f.endCode;  // the data stops with the file: so does the frame
        f.bitBuffer |= unsigned(byte) << f.bitCount;
        f.bitCount += 8;
        --f.blockBytesLeft;
    }
    const unsigned int code = f.bitBuffer & ((1u << f.codeSize) - 1);
    f.bitBuffer >>= f.codeSize;
    f.bitCount -= f.codeSize;
    if (code > kLastEntry) return f.endCode;
    if (code == f.codeLimit) {
        f.codeLimit = f.codeLimit * 2 + 1;
        if (f.codeSize <= 11) ++f.codeSize;
    }
    return code;
}

KV_GIF_INLINE int findNextEntry(GifFrame& f)
{
    if (f.nextEntry > kLastEntry) return 0;
    if (f.table[f.nextEntry].used) {
        if (f.nextEntry > kLastEntry - 1) return 0;
        unsigned int i = f.nextEntry;
        do {
            if (++i > kLastEntry) {
                f.nextEntry = kLastEntry;  // the last entry looked at
                return 0;
            }
        } while (f.table[i].used);
        f.nextEntry = i;
    }
    if (f.nextEntry > kLastEntry - 1) return 0;
    if (f.nextEntry == f.codeLimit) {
        f.codeLimit = f.nextEntry * 2 + 1;
        if (f.codeSize < 12) ++f.codeSize;
    }
    return 1;
}

KV_GIF_INLINE void defineEntry(GifFrame& f, unsigned int prefix, unsigned int source, unsigned int code)
{
    if (code > kLastEntry || prefix > kLastEntry || source > kLastEntry) return;
    const unsigned char last = f.table[source].firstByte;
    const unsigned char first = f.table[prefix].firstByte;
    f.table[code] = {1, last, first, int(prefix)};
}

// Line by line: at the end of each line the position moves on to the next line of the pass (8,
// 8, 4 and 2 lines on), and past the last line of the frame to the first line of the next pass
// (4, 2, 1). After the fourth pass the rest is written straight on from the first pixel. A byte
// beyond the frame is dropped, and still moves the passes on, so that even a frame of fewer than
// 8 lines, or of none, gets through its passes.
void writeInterlaced(GifFrame& f, const unsigned char* string, std::size_t length)
{
    const unsigned char* p = string;
    const unsigned char* const end = string + length;
    const std::uint64_t w = f.width;
    while (p < end) {
        if (f.interlacePass == 0) {
            if (f.writePosition < f.pixelCount) {
                const std::size_t n = std::min<std::uint64_t>(std::size_t(end - p), f.pixelCount - f.writePosition);
                std::memcpy(f.pixels + f.writePosition, p, n);
                f.writePosition += n;
            }
            return;
        }
        if (f.writePosition < f.pixelCount) {
            // pixelCount is whole lines, so a line's end is never beyond the frame.
            const std::uint64_t lineEnd = (f.writePosition / w + 1) * w;
            const std::size_t n = std::min<std::uint64_t>(std::size_t(end - p), lineEnd - f.writePosition);
            std::memcpy(f.pixels + f.writePosition, p, n);
            f.writePosition += n;
            p += n;
            if (f.writePosition != lineEnd) return;
        } else {
            ++p;
            if (w == 0 || f.writePosition % w != 0) continue;
        }
        switch (f.interlacePass) {
        case 1:
        case 2: f.writePosition += 7 * w; break;
        case 3: f.writePosition += 3 * w; break;
        case 4: f.writePosition += w; break;
        default: break;
        }
        if (f.writePosition >= f.pixelCount) {
            switch (f.interlacePass) {
            case 1: f.interlacePass = 2; f.writePosition = 4 * w; break;
            case 2: f.interlacePass = 3; f.writePosition = 2 * w; break;
            case 3: f.interlacePass = 4; f.writePosition = w; break;
            case 4: f.interlacePass = 0; f.writePosition = 0; break;
            default: break;
            }
        }
    }
}

// The chain of `code` onto the stack, last byte first, so that it ends up in reading order; null
// for a chain that would put a 4101st byte on the stack. A chain that comes back to an entry it
// has passed would never end: it is caught as soon as it has come round once (each step is
// compared with an entry saved at every power of two of steps), which spares a walk of 4101
// steps on every use of a looping code. Only a chain without a loop can reach the bound.
KV_GIF_INLINE const unsigned char* walk(GifFrame& f, unsigned int code)
{
    unsigned char* s = f.stack + kLongestString;
    int c = int(code);
    int saved = -2;
    unsigned int sinceSaved = 0, nextSave = 1;
    do {
        if (s == f.stack) return nullptr;
        const GifFrame::TableEntry& entry = f.table[c];
        *--s = entry.lastByte;
        c = entry.prefix;
        if (c == saved) return nullptr;
        if (++sinceSaved == nextSave) {
            saved = c;
            sinceSaved = 0;
            nextSave *= 2;
        }
    } while (c >= 0);
    return s;
}

// sendData: the string of `code` at the write position, through the interlace passes.
void spell(GifFrame& f, unsigned int code)
{
    if (code > kLastEntry || !f.pixels) return;
    // Past the end of a frame that is not interlaced nothing more is written, whatever the code
    // spells: spare the walk.
    if (f.interlacePass == 0 && f.writePosition >= f.pixelCount) return;
    const unsigned char* s = walk(f, code);
    if (!s) return;
    const std::size_t length = std::size_t(f.stack + kLongestString - s);
    if (f.interlacePass != 0) {
        writeInterlaced(f, s, length);
        return;
    }
    const std::size_t n = std::min<std::uint64_t>(length, f.pixelCount - f.writePosition);
    std::memcpy(f.pixels + f.writePosition, s, n);
    f.writePosition += n;
}

// Whether the string of `code` is known (see GifFrame::Workspace): one comparison, with the roots
// made after every clear there can be.
constexpr unsigned int kRoot = 0xFFFFFFFFu;

KV_GIF_INLINE bool isKnown(const GifFrame::Workspace& w, unsigned int code)
{
    return w.known[code].madeIn >= w.clears;
}

KV_GIF_INLINE void countClear(GifFrame::Workspace& w)
{
    // Before the count could reach the roots' mark, every other entry is forgotten.
    if (++w.clears == kRoot) {
        for (GifFrame::Workspace::Known& entry : w.known)
            if (entry.madeIn != kRoot) entry.madeIn = 0;
        w.clears = 1;
    }
}

// Where decompress puts the strings: one after the other, up to the capacity. The bytes beyond
// the position are scratch until the strings reach them.
struct Output {
    unsigned char* data;  // null when the frame gets no pixels
    std::uint64_t capacity;
    std::uint64_t position;
};

// A string onto the output: a known one copied from where its prefix lies, any other walked.
KV_GIF_INLINE void spellOnto(GifFrame& f, GifFrame::Workspace& w, Output& out, unsigned int code)
{
    if (code > kLastEntry || !out.data || out.position >= out.capacity) return;
    const std::uint64_t room = out.capacity - out.position;
    unsigned char* const to = out.data + out.position;
    if (isKnown(w, code)) {
        const unsigned int length = w.known[code].length;
        const std::uint64_t from = w.known[code].at;
        // Most strings are short: one move of 16 bytes, whose excess the next strings overwrite.
        if (length <= 16 && room >= 16 && from + 16 <= out.capacity) {
            std::memmove(to, out.data + from, 16);
            to[length - 1] = f.table[code].lastByte;
            out.position += length;
            return;
        }
        if (length <= room) {
            std::memmove(to, out.data + from, length - 1);
            to[length - 1] = f.table[code].lastByte;
            out.position += length;
            return;
        }
    }
    const unsigned char* s = walk(f, code);
    if (!s) return;
    const std::size_t n = std::min<std::uint64_t>(std::size_t(f.stack + kLongestString - s), room);
    std::memcpy(to, s, n);
    out.position += n;
}

// The decoding loop of decompress, after its first clear.
void decode(GifFrame& f, GifFrame::Workspace& w, GifInput& in, Output& out)
{
    // A fresh workspace knows nothing; the roots are always known.
    for (unsigned int i = 0; i < f.clearCode; ++i) w.known[i].madeIn = kRoot;
    auto define = [&](unsigned int prefix, unsigned int source, unsigned int code, std::uint64_t prefixAt) {
        if (code > kLastEntry || prefix > kLastEntry || source > kLastEntry) return;
        if (code < kClearedEntries && !f.table[code].used) w.made[w.madeCount++] = static_cast<unsigned short>(code);
        defineEntry(f, prefix, source, code);
        // The last entry, made again and again once the table is full, is never known.
        // Written whether known or not, which spares a branch the data would decide.
        const unsigned int count = code < kLastEntry && isKnown(w, prefix) ? w.clears : 0;
        w.known[code] = {count, static_cast<unsigned int>(prefixAt), w.known[prefix].length + 1};
    };
    // The first clear of decompress clears the whole table; from then on only the roots and the
    // entries made since are in use, and the roots stay as they are: a clear resets those entries
    // and starts the codes again, which leaves the table as clearing all of it would.
    auto clear = [&]() {
        for (unsigned int k = 0; k < w.madeCount; ++k) f.table[w.made[k]].used = 0;
        w.madeCount = 0;
        f.endCode = f.clearCode + 1;
        f.nextEntry = f.clearCode + 2;
        f.codeSize = f.minCodeSize + 1;
        f.codeLimit = f.clearCode * 2 - 1;
        countClear(w);
    };

    unsigned int previous = readCode(f, in);
    if (previous == f.clearCode) {
        clear();
        previous = readCode(f, in);
    }
    std::uint64_t previousAt = out.position;
    spellOnto(f, w, out, previous);
    unsigned int current = readCode(f, in);
    for (;;) {
        std::uint64_t currentAt = out.position;
        if (f.table[current].used) {
            spellOnto(f, w, out, current);
            findNextEntry(f);
            define(previous, current, f.nextEntry, previousAt);
        } else {
            // The code that is being defined by this very step: the previous string and its own
            // first byte.
            define(previous, previous, current, previousAt);
            spellOnto(f, w, out, current);
        }
        unsigned int next = readCode(f, in);
        if (next == f.clearCode) {
            clear();
            current = readCode(f, in);
            currentAt = out.position;
            spellOnto(f, w, out, current);
            next = readCode(f, in);
        }
        if (next == f.endCode) break;
        previous = current;
        previousAt = currentAt;
        current = next;
    }
}

#undef KV_GIF_INLINE

}  // namespace

unsigned int GifFrame::getCode(GifInput& in) { return readCode(*this, in); }

int GifFrame::getNextEntry()
{
    ensureWorkspace();
    return findNextEntry(*this);
}

void GifFrame::addToTable(unsigned int prefix, unsigned int source, unsigned int code)
{
    ensureWorkspace();
    defineEntry(*this, prefix, source, code);
}

void GifFrame::sendData(int code)
{
    if (code < 0) return;
    ensureWorkspace();
    spell(*this, unsigned(code));
}

void GifFrame::decompress(GifInput& in)
{
    writePosition = 0;
    blockBytesLeft = 0;
    bitBuffer = 0;
    bitCount = 0;
    minCodeSize = in.byte();

    releasePixels(pixels);
    pixels = nullptr;
    const std::uint64_t available = in.remaining();
    // No more memory than the rest of the input could fill. A frame refused here is still read
    // through to its end code, so that the reader goes on from the same byte either way.
    if (pixelCount != 0 && pixelCount <= mostBytesFrom(available)) pixels = allocatePixels(pixelCount);
    const bool interlaced = interlacePass != 0;
    if (pixels && (interlaced || minCodeSize > kLargestMinCodeSize)) std::memset(pixels, 0, pixelCount);
    if (minCodeSize > kLargestMinCodeSize) return;

    // The strings are decoded one after the other, and an interlaced frame's are then dealt out
    // to its lines through the passes, as sendData does string by string. Only the first
    // pixelCount bytes after the passes can still land, so twice the frame (and one byte for
    // each pass that may be empty) holds all that matters.
    unsigned char* scratch = nullptr;
    if (pixels && interlaced) {
        scratch = allocatePixels(2 * std::size_t(pixelCount) + 4);
        if (!scratch) {
            releasePixels(pixels);
            pixels = nullptr;
        }
    }
    Output out{interlaced ? scratch : pixels, interlaced ? 2 * std::uint64_t(pixelCount) + 4 : pixelCount, 0};
    releaseWorkspace();
    ensureWorkspace();
    clearTable();
    decode(*this, *workspace_, in, out);
    releaseWorkspace();
    if (scratch) {
        writeInterlaced(*this, scratch, std::size_t(out.position));
        releasePixels(scratch);
    } else {
        writePosition = out.position;
    }

    if (!pixels) return;
    // A frame that its own data could not have filled is dropped: this keeps the pixels of all
    // frames together within what the whole file can decode to.
    if (pixelCount > mostBytesFrom(available - in.remaining())) {
        releasePixels(pixels);
        pixels = nullptr;
        return;
    }
    // Without interlace the data fills the frame from the front: clear only what it left.
    if (!interlaced) std::memset(pixels + writePosition, 0, pixelCount - writePosition);
}

// ---------------------------------------------------------------------------------------------
// Gif

Gif::Gif(LightweightString<wchar_t> path_, GifReadDetails details) : path(std::move(path_))
{
    readFile(details);
}

Gif::Gif(const char* path_, GifReadDetails details) : Gif(Kv::WStringFromAscii(path_), details) {}

Gif::Gif(const unsigned char* data, std::size_t size, GifReadDetails details)
{
    if (!data || size < 4 || !startsWithGif8(data)) return;
    GifInput in(data, size);
    readStream(in, details);
}

Gif::~Gif()
{
    freeFrameList(nullptr);
    delete globalPalette;
}

bool Gif::isGifFile(LightweightString<wchar_t> path)
{
    Kv::Ptr<iFile> file = OS()->fileSystem()->open(path, 1, 0, 1, 0);
    if (!file || !file->isValid()) return false;
    unsigned char magic[4] = {};
    return file->read(magic, 4) == 4 && startsWithGif8(magic);
}

bool Gif::isGifFile(const char* path) { return isGifFile(Kv::WStringFromAscii(path)); }

bool Gif::readFile(GifReadDetails details)
{
    if (!isGifFile(path)) return frames.size != 0;
    width = 0;
    height = 0;
    Kv::Ptr<iFile> file = OS()->fileSystem()->open(path, 1, 0, 1, 0);
    if (!file || !file->isValid()) return frames.size != 0;
    GifInput in(std::move(file));  // closes the file when done
    return readStream(in, details);
}

bool Gif::readStream(GifInput& in, GifReadDetails details)
{
    sourceSize = in.sourceSize();
    readHeader(in);
    if (!skipToNextImage(in)) return frames.size != 0;
    do {
        GifFrame* frame = addFrame();
        frame->readImageHeader(in);
        // A frame larger than the screen keeps no pixels; its data is left to the next skip.
        if (frame->width <= width && frame->height <= height) frame->decompress(in);
        if (details == 0) break;
    } while (skipToNextImage(in));
    return frames.size != 0;
}

void Gif::readHeader(GifInput& in)
{
    in.skip(6);  // "GIF87a" or "GIF89a": the version is not looked at
    width = in.readWord();
    height = in.readWord();
    const unsigned int flags = in.byte();
    backgroundColour = in.byte();
    in.byte();  // aspect ratio
    if (flags & 0x80) {
        if (!globalPalette) globalPalette = new GifPalette;
        readPalette(in, *globalPalette, flags);
    }
}

void Gif::readExtension(GifInput& in)
{
    const unsigned int label = in.byte();
    unsigned int size = in.byte();
    if (size == 4 && label == 0xF9) {
        const unsigned int flags = in.byte();
        delay = int(in.readWord());
        if (delay < 0) delay = 1;
        transparentColour = in.byte();
        size = in.byte();  // normally the terminator
        hasTransparency = flags & 1;
        disposal = int((flags >> 2) & 7);
    }
    // Every other extension, and the rest of a graphic control block of another size, is passed
    // over sub-block by sub-block. The end of the input reads as a terminator.
    while (size != 0) {
        in.skip(size);
        size = in.byte();
    }
}

bool Gif::skipToNextImage(GifInput& in)
{
    // Trailing sub-blocks, stray bytes and the data of frames left undecoded are all passed over
    // here, byte by byte: such data may be misread at a byte of 0x21 or 0x2C.
    for (;;) {
        const int byte = in.next();
        if (byte < 0) return false;
        if (byte == 0x21) {
            readExtension(in);
        } else if (byte == 0x2C) {
            return true;
        }
    }
}

GifFrame* Gif::addFrame()
{
    auto* frame = new GifFrame(unsigned(delay), globalPalette);
    if (hasTransparency) frame->setTransparentCol(transparentColour);
    frames.add(frame);
    return frame;
}

void Gif::freeFrameList(GifFrame*)
{
    for (GifFrame* frame : frames) delete frame;
    frames.clear();
}

Kv::Image::Surface Gif::getImage(unsigned int index)
{
    Kv::Image::Surface image;
    if (index >= frames.size) return image;
    // The picture is as large as the screen, but all a file can put on it is what its LZW data
    // decodes to. A screen larger than that for the whole file would hold little but
    // transparency: its header is not trusted with the memory.
    const std::uint64_t screenPixels = std::uint64_t(width) * height;
    if (screenPixels > std::min(mostBytesFrom(sourceSize), kLargestPicturePixels)) return image;
    try {
        image.init(width, height, Kv::Image::ARGB, true, 0, 0, 0);
    } catch (const std::bad_alloc&) {
        return Kv::Image::Surface();
    }
    unsigned char* line = image.getDataPtr();
    const std::size_t stride = image.getStride();
    if (!line || stride < std::size_t(width) * 4) return image;

    const GifFrame& frame = *frames[index];
    static const GifPalette greyRamp;  // for a file with neither palette
    const GifPalette* palette = frame.palette ? frame.palette : globalPalette;
    if (!palette) palette = &greyRamp;

    // The whole palette as ARGB words, once for the picture. Transparency goes by colour: every
    // entry of the transparent entry's colour keeps that colour, with alpha 0.
    std::uint32_t words[256];
    for (int i = 0; i < 256; ++i) {
        const RgbTriple_<unsigned char>& c = *palette->getCol(i);
        words[i] = 0xFF000000u | std::uint32_t(c.r) << 16 | std::uint32_t(c.g) << 8 | c.b;
    }
    if (frame.hasTransparency && frame.transparentColour < 256) {
        const std::uint32_t key = words[frame.transparentColour] & 0x00FFFFFFu;
        for (std::uint32_t& word : words)
            if ((word & 0x00FFFFFFu) == key) word = key;
    }

    // The frame's indices one after the other over the screen's lines; what lies beyond them is
    // transparent. Reads the stride.
    const unsigned char* src = frame.pixels;
    std::size_t indicesLeft = src ? frame.pixelCount : 0;
    const std::size_t lines = std::min<std::size_t>(height, image.holderBytesFrom(line) / stride);
    for (std::size_t y = 0; y < lines; ++y, line += stride) {
        const std::size_t n = std::min<std::size_t>(width, indicesLeft);
        unsigned char* out = line;
        for (std::size_t x = 0; x < n; ++x, out += 4) std::memcpy(out, &words[src[x]], 4);
        src += n;
        indicesLeft -= n;
        if (n < width) std::memset(out, 0, (width - n) * 4);
    }
    return image;
}
