// The stock file service on a temporary folder: open dispositions, the shared file position,
// and the log line of a failed open.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "ole/platform/os/OS.h"
#include "ole/platform/text/KvText.h"
#include "tests/support/TestSupport.h"

namespace {

class PlatformFile : public ::testing::Test {
protected:
    Kv::Ptr<iFile> open(const std::string& path, int access, int disposition)
    {
        return OS()->fileSystem()->open(fromUTF8(path.c_str()), access, disposition, 0, 0);
    }

    static std::string read(iFile& file, unsigned int bytes)
    {
        std::string text(bytes, '\0');
        text.resize(file.read(text.data(), bytes));
        return text;
    }

    TempDir dir;
    CapturingLogSink log;
};

TEST_F(PlatformFile, DispositionsAndAccessModes)
{
    const std::string path = dir.file("a.bin");
    EXPECT_FALSE(open(path, 1, 0)) << "open existing, but there is none";
    EXPECT_EQ(log.count({path, std::strerror(ENOENT)}), 1);

    Kv::Ptr<iFile> file = open(path, 3, 1);
    ASSERT_TRUE(file && file->isValid() && file->write("hello", 5) == 5);

    EXPECT_FALSE(open(path, 2, 1)) << "create new, but it exists";
    EXPECT_EQ(log.count({path, std::strerror(EEXIST)}), 1);

    file = open(path, 1, 2);
    ASSERT_TRUE(file);
    EXPECT_EQ(read(*file, 10), "hello") << "open or create keeps what is there";
    EXPECT_EQ(file->write("xx", 2), 0u) << "opened for reading only";

    file = open(path, 2, 3);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->size(), 0u) << "create or truncate";
    char c;
    EXPECT_EQ(file->read(&c, 1), 0u) << "opened for writing only";

    EXPECT_TRUE(open(dir.file("b.bin"), 2, 2) && std::filesystem::exists(dir.file("b.bin")));
    EXPECT_FALSE(open(path, 0, 0) || open(path, 1, 7));
}

TEST_F(PlatformFile, AllTransfersShareOnePosition)
{
    const std::string path = dir.file("pos.bin");
    Kv::Ptr<iFile> file = open(path, 3, 3);
    ASSERT_TRUE(file);
    EXPECT_TRUE(file->write("0123456789", 10) == 10 && file->tell() == 10);
    EXPECT_EQ(file->writeAt(2, "ab", 2), 2u);
    EXPECT_EQ(file->tell(), 4u) << "writeAt leaves the position behind what it wrote";
    EXPECT_EQ(file->write("X", 1), 1u);
    EXPECT_EQ(contents(path), "01abX56789");

    char pair[2];
    EXPECT_EQ(file->readAt(6, pair, 2), 2u);
    EXPECT_EQ(std::string(pair, 2), "67");
    EXPECT_EQ(file->tell(), 8u) << "readAt leaves the position behind what it read";
    EXPECT_EQ(read(*file, 5), "89") << "a short count at the end of the file";
    EXPECT_EQ(file->tell(), 10u);
    EXPECT_TRUE(file->seek(1) && read(*file, 3) == "1ab");
    EXPECT_TRUE(file->readAt(20, pair, 2) == 0 && file->tell() == 20);

    EXPECT_TRUE(file->seek(12) && file->write("Z", 1) == 1 && file->size() == 13);
    EXPECT_EQ(contents(path), std::string("01abX56789\0\0Z", 13)) << "a hole of zeros";
}

TEST_F(PlatformFile, WidePathsAreUTF8OnDiskAndFoldersDoNotOpen)
{
    const std::string name = dir.file("\xC3\xA9t\xC3\xA9 \xE2\x82\xAC.dpx");
    EXPECT_TRUE(open(name, 2, 1) && std::filesystem::exists(name));
    EXPECT_FALSE(open(dir.file(""), 1, 0));
    EXPECT_EQ(log.count({std::strerror(EISDIR)}), 1);
    EXPECT_EQ(OS()->fileSystem()->pathSeparator(), L'/');
}

TEST_F(PlatformFile, ClosesWhenTheLastOwnerGoes)
{
    auto openDescriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = openDescriptors();
    Kv::Ptr<iFile> first = open(dir.file("c.bin"), 3, 2);
    Kv::Ptr<iFile> second = first;
    first.reset();
    EXPECT_TRUE(openDescriptors() == before + 1 && second->write("ok", 2) == 2);
    second.reset();
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
