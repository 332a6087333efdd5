#include "ole/platform/text/InputStream.h"

#include <algorithm>
#include <cstring>

InputStream::~InputStream() = default;

std::uint64_t InputStream::remaining() { return unknownSize; }

// ---------------------------------------------------------------------------------------------
// SimpleFileInputStream

SimpleFileInputStream::SimpleFileInputStream(const LightweightString<wchar_t>& path)
    : file_(OS()->fileSystem()->open(path, 1, 0, 1, 0))
{
    if (file_) buffer_ = new unsigned char[bufferSize];
}

SimpleFileInputStream::~SimpleFileInputStream() { delete[] buffer_; }

bool SimpleFileInputStream::isValid() { return file_ && file_->isValid(); }

void SimpleFileInputStream::rewind()
{
    next_ = end_ = buffer_;
    filePosition_ = 0;
}

bool SimpleFileInputStream::refill()
{
    if (!file_) return false;
    const unsigned int got = file_->readAt(filePosition_, buffer_, bufferSize);
    filePosition_ += got;
    next_ = buffer_;
    end_ = buffer_ + got;
    return got != 0;
}

int SimpleFileInputStream::refillAndRead() { return refill() ? *next_++ : -1; }

unsigned int SimpleFileInputStream::read(unsigned int bytes, void* destination)
{
    auto* out = static_cast<unsigned char*>(destination);
    const unsigned int buffered = unsigned(end_ - next_);
    if (bytes <= buffered) {
        std::memcpy(out, next_, bytes);
        next_ += bytes;
        return bytes;
    }
    // What the buffer holds first, then the rest: straight from the file when it is large,
    // through the buffer when it is small.
    if (buffered) std::memcpy(out, next_, buffered);
    next_ = end_;
    unsigned int done = buffered;
    const unsigned int rest = bytes - done;
    if (!file_) return done;
    if (rest >= bufferSize / 4) {
        const unsigned int got = file_->readAt(filePosition_, out + done, rest);
        filePosition_ += got;
        return done + got;
    }
    if (!refill()) return done;
    const unsigned int n = std::min(rest, unsigned(end_ - next_));
    std::memcpy(out + done, next_, n);
    next_ += n;
    return done + n;
}

void SimpleFileInputStream::skip(unsigned int bytes)
{
    const unsigned int buffered = unsigned(end_ - next_);
    if (bytes <= buffered) {
        next_ += bytes;
        return;
    }
    // The file position may go past the end: reads from there find nothing.
    filePosition_ += bytes - buffered;
    next_ = end_ = buffer_;
}

std::uint64_t SimpleFileInputStream::remaining()
{
    if (!file_) return 0;
    const std::uint64_t size = file_->size();
    const std::uint64_t position = filePosition_ - std::uint64_t(end_ - next_);
    return size > position ? size - position : 0;
}

// ---------------------------------------------------------------------------------------------
// MemoryInputStream

unsigned int MemoryInputStream::read(unsigned int bytes, void* destination)
{
    const unsigned int n = unsigned(std::min<std::size_t>(bytes, size_ - position_));
    if (n) std::memcpy(destination, data_ + position_, n);
    position_ += n;
    return n;
}

void MemoryInputStream::skip(unsigned int bytes)
{
    position_ += std::min<std::size_t>(bytes, size_ - position_);
}
