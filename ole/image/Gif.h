#pragma once
// GIF pictures, decoded by the library itself into a list of palette-indexed frames, any of which
// is handed out as a 32-bit ARGB picture. Read only.
//
// The decoder is deliberately simple, and callers depend on its simplicity:
// - transparency goes by colour: every palette entry with the colour of the transparent entry is
//   transparent;
// - the picture is as large as the logical screen, and a frame's pixels are read into it from the
//   first screen pixel on, whatever the frame's position and width;
// - frames are not composed: disposal, background and earlier frames change nothing;
// - a frame wider or taller than the screen is kept, without pixels;
// - anything that starts with the letters GIF8 is taken for a GIF.
//
// The LZW decoder keeps a table with a used flag on each entry, finds the next free entry by
// search, and widens the code in two places: when the next entry reaches the code limit, and
// when a code equal to the limit is read.

#include <cstddef>
#include <cstdint>

#include "ole/Kv/KvPtr.h"
#include "ole/image/KvSurface.h"
#include "ole/misc/LightweightString.h"
#include "ole/misc/Vector.h"
#include "ole/platform/os/KvPlatformExport.h"
#include "ole/platform/os/OS.h"

// One palette colour, three bytes in the order blue, green, red.
template <class T>
struct RgbTriple_ {
    T b;
    T g;
    T r;
};

// 256 colours. Entry i starts as grey i, so that indices beyond the colours a file gives still
// name a colour.
class KV_EXPORT GifPalette {
public:
    GifPalette() noexcept;

    // No range check on either: the index is a byte of the file or of the pixels.
    void setCol(int index, const RgbTriple_<unsigned char>& colour) noexcept { entries[index] = colour; }
    const RgbTriple_<unsigned char>* getCol(int index) const noexcept { return &entries[index]; }

    RgbTriple_<unsigned char> entries[256];
};

// The bytes of a GIF, from a file or from memory, read front to back. A read past the end gives
// 0 and marks the input as ended, which is what ends every loop of the reader. Files are read
// in large pieces, so that the decoder pays for no call per byte.
class KV_EXPORT GifInput {
public:
    // Bytes that belong to the caller and outlive the input.
    GifInput(const unsigned char* data, std::size_t size) noexcept;
    // Reads on from where the file stands.
    explicit GifInput(Kv::Ptr<iFile> file);
    ~GifInput();
    GifInput(const GifInput&) = delete;
    GifInput& operator=(const GifInput&) = delete;

    // The next byte, or -1 at the end.
    int next()
    {
        if (cur_ == end_ && !refill()) return -1;
        return *cur_++;
    }
    // The next byte, or 0 at the end.
    unsigned int byte()
    {
        const int b = next();
        return b < 0 ? 0u : unsigned(b);
    }
    // Two bytes, low byte first.
    unsigned int readWord()
    {
        const unsigned int low = byte();
        return low | (byte() << 8);
    }
    void skip(std::uint64_t bytes);

    // Whether a read has run past the end.
    bool ended() const noexcept { return ended_; }
    // Bytes not yet read.
    std::uint64_t remaining() const noexcept;
    // Bytes of the whole source, as far as it can tell.
    std::uint64_t sourceSize() const noexcept { return sourceSize_; }

private:
    bool refill();

    const unsigned char* cur_;
    const unsigned char* end_;
    Kv::Ptr<iFile> file_;
    unsigned char* buffer_;        // file pieces; null for memory
    std::uint64_t fileLeft_;       // bytes of the file not yet in the buffer
    std::uint64_t sourceSize_;
    bool ended_;
};

// One image of the file: its descriptor, its palette-indexed pixels and the state of its LZW
// decoder.
class KV_EXPORT GifFrame {
public:
    struct TableEntry {
        unsigned char used;
        unsigned char lastByte;   // the byte this code adds to its prefix's string
        unsigned char firstByte;  // the first byte of the whole string
        int prefix;               // -1 for a string of one byte
    };
    static constexpr unsigned int kTableEntries = 4200;
    static constexpr unsigned int kStackBytes = 4200;

    GifFrame(unsigned int delay, GifPalette* globalPalette);
    ~GifFrame();
    GifFrame(const GifFrame&) = delete;
    GifFrame& operator=(const GifFrame&) = delete;

    // The image descriptor and any local palette.
    void readImageHeader(GifInput& in);
    // Reads the LZW data into `pixels`, up to the end code, and leaves what follows to the
    // caller. A minimum code size above 11 is a corrupt frame: nothing is decoded and the data is
    // left where it is. Pixels that the data cannot reach are index 0. A frame whose data could
    // not fill it even at the highest expansion LZW allows is given no pixels at all.
    void decompress(GifInput& in);
    // The next code of `codeSize` bits; the end code at the end of the input or for a code above
    // the table.
    unsigned int getCode(GifInput& in);
    // Moves `nextEntry` to where the next string goes; 0 when the table is full.
    int getNextEntry();
    void addToTable(unsigned int prefix, unsigned int source, unsigned int code);
    // Writes the string of `code` at the write position, line by line through the interlace
    // passes. A chain of 4101 or more is corrupt and writes nothing.
    void sendData(int code);
    void initTable();
    void clearTable();
    void setTransparentCol(unsigned int colour);

    unsigned int delay;
    unsigned int width;
    unsigned int height;
    unsigned int pixelCount;     // width * height
    unsigned int interlacePass;  // 0 when not interlaced, else the pass being written, 1 to 4
    GifPalette* palette;         // the local palette, or the global one
    int ownsPalette;
    unsigned int left;
    unsigned int top;
    // pixelCount palette indices; null until decoded. The block comes from OS()->memory(), and
    // the frame releases it there.
    unsigned char* pixels;
    std::uint64_t writePosition;
    unsigned int transparentColour;
    unsigned char hasTransparency;
    // The LZW table and the stack that spells a string out, allocated while the frame is being
    // decoded and released after, so that a file of many frames costs little per frame.
    TableEntry* table;           // kTableEntries entries, 4101 of them used
    unsigned int minCodeSize;
    unsigned int codeSize;
    unsigned int clearCode;
    unsigned int endCode;
    unsigned int codeLimit;
    unsigned int nextEntry;
    unsigned char* stack;        // kStackBytes
    unsigned int blockBytesLeft;
    unsigned int bitBuffer;
    unsigned int bitCount;

    // The memory behind `table` and `stack`, and what the decoding loop keeps beside them.
    struct Workspace;

private:
    Workspace* ensureWorkspace();
    void releaseWorkspace() noexcept;

    Workspace* workspace_;
};

class KV_EXPORT Gif {
public:
    // 0 reads the first frame only; any other value reads them all.
    typedef int GifReadDetails;

    // Both read the file at once.
    Gif(LightweightString<wchar_t> path, GifReadDetails details);
    Gif(const char* path, GifReadDetails details);
    // Reads a GIF that is already in memory, exactly as from a file.
    Gif(const unsigned char* data, std::size_t size, GifReadDetails details);
    // Frees the global palette and the frames.
    ~Gif();
    Gif(const Gif&) = delete;
    Gif& operator=(const Gif&) = delete;

    static bool isGifFile(LightweightString<wchar_t> path);
    static bool isGifFile(const char* path);

    // Frame `index` as a picture as large as the logical screen, ARGB at 8 bits, in the line
    // order of the file (top line first; the flag isTopDown is left to the caller). The frame's
    // indices fill the screen from its first pixel on; what they do not reach, and all of a frame
    // without pixels, is transparent black. A file without any palette is shown in the grey
    // ramp. Empty for an index beyond the frames, and for a screen larger than anything the file
    // could fill.
    Kv::Image::Surface getImage(unsigned int index);

    // True if at least one frame exists.
    bool readFile(GifReadDetails details);
    // What readFile does once the file is open: header, then the frames. True if at least one
    // frame exists.
    bool readStream(GifInput& in, GifReadDetails details);
    void readHeader(GifInput& in);
    void readExtension(GifInput& in);
    // Walks to the next image descriptor, reading extensions on the way; false at the end.
    bool skipToNextImage(GifInput& in);
    GifFrame* addFrame();
    // Destroys every frame, whatever the argument, and empties `frames`.
    void freeFrameList(GifFrame* unused);

    LightweightString<wchar_t> path;
    unsigned int width = 0;   // the logical screen
    unsigned int height = 0;
    Vector<GifFrame*> frames;
    GifPalette* globalPalette = nullptr;
    unsigned int backgroundColour = 0;
    // The graphic control state, carried from frame to frame until another block changes it.
    unsigned int transparentColour = 0;
    unsigned char hasTransparency = 0;
    int disposal = 0;
    int delay = 17;
    // Bytes of the file or memory the frames came from: what the picture's memory is measured
    // against.
    std::uint64_t sourceSize = 0;
};
