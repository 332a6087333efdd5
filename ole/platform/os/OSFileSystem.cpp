// The stock file service, on POSIX descriptors. Every transfer goes through pread and pwrite
// at the file's own position, so that read, readAt, write and writeAt share that position
// exactly as the interface says, whatever the kernel's offset.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>

#include "ole/platform/os/StockServices.h"
#include "ole/platform/settings/KvLog.h"
#include "ole/platform/text/KvText.h"

namespace Kv::Platform {

constinit StockFileSystem stockFileSystem;

namespace {

constexpr std::uint64_t maxOffset = std::uint64_t(std::numeric_limits<off_t>::max());

// One open file. Like a stream, one file object is used by one thread at a time.
class PosixFile final : public iFile {
public:
    explicit PosixFile(int fd) noexcept : fd_(fd) {}
    ~PosixFile() override { ::close(fd_); }

    unsigned int read(void* buffer, unsigned int bytes) override
    {
        const unsigned int got = transferIn(position_, buffer, bytes);
        position_ += got;
        return got;
    }

    unsigned int readAt(std::uint64_t position, void* buffer, unsigned int bytes) override
    {
        const unsigned int got = transferIn(position, buffer, bytes);
        position_ = position + got;
        return got;
    }

    unsigned int write(const void* buffer, unsigned int bytes) override
    {
        const unsigned int put = transferOut(position_, buffer, bytes);
        position_ += put;
        return put;
    }

    // Like readAt, leaves the position just behind what it wrote.
    unsigned int writeAt(std::uint64_t position, const void* buffer, unsigned int bytes) override
    {
        const unsigned int put = transferOut(position, buffer, bytes);
        position_ = position + put;
        return put;
    }

    // Any position a file can have, past the end included (a write there leaves a hole).
    bool seek(std::uint64_t position) override
    {
        if (position > maxOffset) return false;
        position_ = position;
        return true;
    }

    std::uint64_t tell() override { return position_; }

    std::uint64_t size() override
    {
        struct stat st;
        return ::fstat(fd_, &st) == 0 ? std::uint64_t(st.st_size) : 0;
    }

    bool isValid() override { return fd_ >= 0; }

private:
    // Moves up to `bytes` from the file at `position`, going on after partial transfers and
    // interruptions; stops at the end of the file or on an error.
    unsigned int transferIn(std::uint64_t position, void* buffer, unsigned int bytes)
    {
        char* out = static_cast<char*>(buffer);
        unsigned int done = 0;
        while (done < bytes && position + done <= maxOffset - bytes) {
            const ssize_t n = ::pread(fd_, out + done, bytes - done, off_t(position + done));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            done += unsigned(n);
        }
        return done;
    }

    unsigned int transferOut(std::uint64_t position, const void* buffer, unsigned int bytes)
    {
        const char* in = static_cast<const char*>(buffer);
        unsigned int done = 0;
        while (done < bytes && position + done <= maxOffset - bytes) {
            const ssize_t n = ::pwrite(fd_, in + done, bytes - done, off_t(position + done));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            done += unsigned(n);
        }
        return done;
    }

    const int fd_;
    std::uint64_t position_ = 0;
};

void logOpenFailure(const LightweightString<char>& path, int error)
{
    char buffer[256];
    Log("Cannot open file \"%s\": %s\n", path.c_str(), describeError(error, buffer, sizeof buffer));
}

}  // namespace

Kv::Ptr<iFile> StockFileSystem::open(const LightweightString<wchar_t>& path, int access,
                                     int disposition, int, int)
{
    const LightweightString<char> name = toUTF8(path);
    int flags = O_CLOEXEC;
    switch (access) {
    case 1: flags |= O_RDONLY; break;
    case 2: flags |= O_WRONLY; break;
    case 3: flags |= O_RDWR; break;
    default: logOpenFailure(name, EINVAL); return {};
    }
    switch (disposition) {
    case 0: break;
    case 1: flags |= O_CREAT | O_EXCL; break;
    case 2: flags |= O_CREAT; break;
    case 3: flags |= O_CREAT | O_TRUNC; break;
    default: logOpenFailure(name, EINVAL); return {};
    }
    if (name.empty()) {
        logOpenFailure(name, ENOENT);
        return {};
    }

    int fd;
    do {
        fd = ::open(name.c_str(), flags, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        logOpenFailure(name, errno);
        return {};
    }
    // A folder opens for reading on POSIX, but is no file to read.
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        logOpenFailure(name, EISDIR);
        return {};
    }
    try {
        return Kv::Ptr<iFile>(new PosixFile(fd));
    } catch (...) {
        ::close(fd);
        throw;
    }
}

}  // namespace Kv::Platform
