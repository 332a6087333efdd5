#pragma once
// Film-scan files made by the tests themselves: a DPX and a Cineon header writer in either byte
// order, the pixel packings, and a file system in memory that logs every transfer and seek.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "ole/image/KvSurface.h"
#include "ole/platform/os/OS.h"
#include "ole/platform/settings/KvLog.h"
#include "ole/platform/text/KvText.h"

namespace CineonFiles {

using Bytes = std::string;

inline void put32(Bytes& b, std::size_t at, std::uint32_t v, bool big)
{
    for (int i = 0; i < 4; ++i) b[at + i] = char(big ? v >> (24 - 8 * i) : v >> (8 * i));
}
inline void put16(Bytes& b, std::size_t at, std::uint16_t v, bool big)
{
    b[at] = char(big ? v >> 8 : v);
    b[at + 1] = char(big ? v : v >> 8);
}

struct Dpx {
    bool big = false;
    unsigned int width = 8, height = 2;
    unsigned char descriptor = 50, transfer = 2, bitSize = 10;
    std::uint32_t padding = 0, offset = 2048;
    std::uint16_t orientation = 0, encoding = 0;
    std::uint32_t timecode = 0;
    float frameRate = 0.0f;
    std::string key;         // 15 places, or none
    std::string filmFormat;  // "16 mm", "3-perf", "academy"
};

inline Bytes dpxFile(const Dpx& h, const Bytes& pixels)
{
    Bytes b(2048, '\0');
    put32(b, 0, 0x53445058, h.big);
    put32(b, 4, h.offset, h.big);
    put16(b, 768, h.orientation, h.big);
    put16(b, 770, 1, h.big);
    put32(b, 772, h.width, h.big);
    put32(b, 776, h.height, h.big);
    b[800] = char(h.descriptor);
    b[801] = char(h.transfer);
    b[803] = char(h.bitSize);
    put16(b, 804, 1, h.big);
    put16(b, 806, h.encoding, h.big);
    put32(b, 812, h.padding, h.big);
    if (h.key.size() == 15) {
        b.replace(1664, 2, h.key, 0, 2);
        b.replace(1670, 6, h.key, 2, 6);
        b.replace(1676, 4, h.key, 8, 4);
        b.replace(1668, 2, h.key, 13, 2);
    }
    b.replace(1680, h.filmFormat.size(), h.filmFormat);
    std::uint32_t rate;
    std::memcpy(&rate, &h.frameRate, 4);
    put32(b, 1724, rate, h.big);
    put32(b, 1920, h.timecode, h.big);
    if (h.offset > 2048) b.resize(h.offset, '\0');
    return b + pixels;
}

inline Bytes cineonFile(bool big, unsigned int width, unsigned int height, unsigned char packing,
                        const Bytes& pixels, unsigned char depth = 10)
{
    Bytes b(2048, '\0');
    put32(b, 0, 0x802A5FD7, big);
    put32(b, 4, 2048, big);
    b[198] = char(depth);
    put32(b, 200, width, big);
    put32(b, 204, height, big);
    b[681] = char(packing);
    return b + pixels;
}

// A 10-bit RGB pixel as DPX packs it: red at the top, two unused bits at the bottom.
inline std::uint32_t dpxWord(unsigned r, unsigned g, unsigned b) { return r << 22 | g << 12 | b << 2; }

inline Bytes words(const std::vector<std::uint32_t>& w, bool big)
{
    Bytes b(w.size() * 4, '\0');
    for (std::size_t i = 0; i < w.size(); ++i) put32(b, i * 4, w[i], big);
    return b;
}

inline Bytes samples16(const std::vector<std::uint16_t>& s, bool big)
{
    Bytes b(s.size() * 2, '\0');
    for (std::size_t i = 0; i < s.size(); ++i) put16(b, i * 2, s[i], big);
    return b;
}

// Installed for its lifetime. Files live in `files` by path; every open, transfer and seek of a
// file made from a path that holds "logged" goes to `log`.
// For a fuzzer: the reports of damaged files are expected, so the log and the assertion prints
// on standard output are kept off the fuzzer's own output.
inline void silenceReports()
{
    struct Quiet final : iLogSink {
        void write(Channel, const char*) override {}
    };
    static Quiet quiet;
    Kv::Platform::setLogSink(&quiet);
    if (!std::freopen("/dev/null", "w", stdout)) return;
}

// For a fuzzer: a picture whose described lines run past its own memory is a fault.
inline void abortUnlessInMemory(const Kv::Image::Surface& s)
{
    if (s.valid() && std::uint64_t(s.getStride()) * s.getHeight() > s.getMemHolder()->getSize()) std::abort();
}

class MemoryFiles final : public iFileSystem {
public:
    MemoryFiles() : previous_(OS()->setFileSystem(this)) {}
    ~MemoryFiles() { OS()->setFileSystem(previous_); }

    Kv::Ptr<iFile> open(const LightweightString<wchar_t>& path, int access, int disposition, int, int) override
    {
        const std::wstring name(path.c_str());
        if (disposition == 3) files[name].clear();
        else if (!files.count(name)) return {};
        return Kv::Ptr<iFile>(new File(files[name], access, name.find(L"logged") != std::wstring::npos ? &log : nullptr));
    }
    wchar_t pathSeparator() override { return L'/'; }

    std::map<std::wstring, Bytes> files;
    std::vector<std::string> log;

private:
    class File final : public iFile {
    public:
        File(Bytes& bytes, int access, std::vector<std::string>* log) : bytes_(bytes), access_(access), log_(log) {}
        unsigned int read(void* buffer, unsigned int n) override { return readAt(position_, buffer, n); }
        unsigned int readAt(std::uint64_t at, void* buffer, unsigned int n) override
        {
            const std::size_t got = at >= bytes_.size() ? 0 : std::min<std::size_t>(n, bytes_.size() - at);
            if (got) std::memcpy(buffer, bytes_.data() + at, got);
            position_ = at + got;
            note("read " + std::to_string(at) + " " + std::to_string(n));
            return unsigned(got);
        }
        unsigned int write(const void* buffer, unsigned int n) override { return writeAt(position_, buffer, n); }
        unsigned int writeAt(std::uint64_t at, const void* buffer, unsigned int n) override
        {
            if (!(access_ & 2)) return 0;
            if (bytes_.size() < at + n) bytes_.resize(at + n, '\0');
            std::memcpy(bytes_.data() + at, buffer, n);
            position_ = at + n;
            return n;
        }
        bool seek(std::uint64_t at) override
        {
            position_ = at;
            note("seek " + std::to_string(at));
            return true;
        }
        std::uint64_t tell() override { return position_; }
        std::uint64_t size() override { return bytes_.size(); }
        bool isValid() override { return true; }

    private:
        void note(const std::string& s)
        {
            if (log_) log_->push_back(s);
        }
        Bytes& bytes_;
        int access_;
        std::vector<std::string>* log_;
        std::uint64_t position_ = 0;
    };

    iFileSystem* previous_;
};

}  // namespace CineonFiles
