// The byte streams against the plain truth of the bytes, over seeded mixes of byte reads,
// small and large reads, skips and rewinds that cross the file stream's buffer edges.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ole/platform/text/InputStream.h"
#include "ole/platform/text/KvText.h"
#include "tests/support/TestSupport.h"

namespace {

void checkAgainstBytes(InputStream& stream, const std::string& bytes, unsigned int seed)
{
    std::mt19937 random(seed);
    const unsigned int b = SimpleFileInputStream::bufferSize;
    // Around the edges that matter: single bytes, the straight-to-file threshold, the buffer.
    const unsigned int sizes[] = {1, 3, 17, b / 4 - 1, b / 4, b - 1, b, b + 1, 3 * b};
    std::vector<unsigned char> out(4 * b);
    std::size_t at = 0;
    for (int step = 0; step < 400; ++step) {
        const unsigned int n = sizes[random() % std::size(sizes)];
        const int op = int(random() % 8);
        if (op < 2) {
            ASSERT_EQ(stream.readByte(), at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : -1) << step;
            at = std::min(at + 1, bytes.size());
        } else if (op < 5) {
            const unsigned int expected = unsigned(std::min<std::size_t>(n, bytes.size() - at));
            ASSERT_EQ(stream.read(n, out.data()), expected) << step;
            ASSERT_EQ(0, std::memcmp(out.data(), bytes.data() + at, expected)) << step;
            at += expected;
        } else if (op < 7) {
            stream.skip(n);
            at = std::min(at + n, bytes.size());
        } else if (random() % 4 == 0) {
            stream.rewind();
            at = 0;
        }
        ASSERT_EQ(stream.remaining(), bytes.size() - at) << step;
    }
}

}  // namespace

TEST(InputStream, FileAndMemoryStreamsAgreeWithTheBytes)
{
    TempDir dir;
    std::string bytes(3 * SimpleFileInputStream::bufferSize + 123, '\0');
    std::mt19937 fill(5);
    for (char& c : bytes) c = char(fill());
    put(dir.file("bytes.bin"), bytes);
    for (unsigned int seed = 1; seed <= 6; ++seed) {
        SimpleFileInputStream file(fromUTF8(dir.file("bytes.bin").c_str()));
        ASSERT_TRUE(file.isValid());
        checkAgainstBytes(file, bytes, seed);
        MemoryInputStream memory(bytes.data(), bytes.size());
        checkAgainstBytes(memory, bytes, seed);
    }
}

TEST(InputStream, MissingFileGivesNothing)
{
    TempDir dir;
    CapturingLogSink log;
    SimpleFileInputStream missing(fromUTF8(dir.file("none.bin").c_str()));
    EXPECT_FALSE(missing.isValid());
    unsigned char byte = 7;
    EXPECT_EQ(missing.readByte(), -1);
    missing.skip(10);
    EXPECT_EQ(missing.read(1, &byte), 0u);
    EXPECT_EQ(missing.remaining(), 0u);
    EXPECT_FALSE(MemoryInputStream(nullptr, 5).isValid());
}
