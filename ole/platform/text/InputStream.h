#pragma once
// Byte streams that the file codecs read from: the abstract InputStream, a buffered one over a
// file, and one over memory that somebody else owns.

#include <cstddef>
#include <cstdint>

#include "ole/Kv/KvPtr.h"
#include "ole/misc/LightweightString.h"
#include "ole/platform/os/KvPlatformExport.h"
#include "ole/platform/os/OS.h"

// A stream of bytes read from the front. The first five operations are the closed interface
// that readers rely on, in this order; remaining() is a later addition behind them.
class KV_EXPORT InputStream {
public:
    virtual ~InputStream();
    virtual bool isValid() = 0;
    // Back to the first byte.
    virtual void rewind() = 0;
    // The next byte, 0 to 255, or -1 at the end.
    virtual int readByte() = 0;
    // Copies up to `bytes` bytes; returns how many it copied, fewer only at the end.
    virtual unsigned int read(unsigned int bytes, void* destination) = 0;
    // Moves on by `bytes`; past the end the stream simply stays at its end.
    virtual void skip(unsigned int bytes) = 0;

    static constexpr std::uint64_t unknownSize = ~std::uint64_t(0);
    // Bytes between the present position and the end, or unknownSize when the stream cannot
    // tell. Readers use it to refuse headers that promise more than the stream can hold.
    virtual std::uint64_t remaining();

    InputStream() = default;
    InputStream(const InputStream&) = delete;
    InputStream& operator=(const InputStream&) = delete;
};

// A file opened for reading, read through a buffer of its own so that readByte and small reads
// cost no call into the file system. Reads of at least a quarter of the buffer go straight to
// the file, into the caller's memory.
class KV_EXPORT SimpleFileInputStream : public InputStream {
public:
    static constexpr unsigned int bufferSize = 64 * 1024;

    explicit SimpleFileInputStream(const LightweightString<wchar_t>& path);
    ~SimpleFileInputStream() override;

    bool isValid() override;
    void rewind() override;
    int readByte() override { return next_ != end_ ? *next_++ : refillAndRead(); }
    unsigned int read(unsigned int bytes, void* destination) override;
    void skip(unsigned int bytes) override;
    std::uint64_t remaining() override;

private:
    int refillAndRead();
    // Refills the buffer from the file position; false at the end of the file.
    bool refill();

    Kv::Ptr<iFile> file_;
    unsigned char* buffer_ = nullptr;
    const unsigned char* next_ = nullptr;  // next byte to hand out
    const unsigned char* end_ = nullptr;   // end of the buffered bytes
    std::uint64_t filePosition_ = 0;       // where the byte at end_ lies in the file
};

// Bytes in memory that the caller keeps alive for the stream's lifetime.
class KV_EXPORT MemoryInputStream : public InputStream {
public:
    MemoryInputStream(const void* data, std::size_t size) noexcept
        : data_(static_cast<const unsigned char*>(data)), size_(data ? size : 0)
    {
    }

    bool isValid() override { return data_ != nullptr; }
    void rewind() override { position_ = 0; }
    int readByte() override { return position_ < size_ ? data_[position_++] : -1; }
    unsigned int read(unsigned int bytes, void* destination) override;
    void skip(unsigned int bytes) override;
    std::uint64_t remaining() override { return size_ - position_; }

private:
    const unsigned char* data_;
    std::size_t size_;
    std::size_t position_ = 0;
};
