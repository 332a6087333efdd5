#include <gtest/gtest.h>

#include "tests/support/Interop.h"

// The makers and the peer decoder are there and agree on a tiny picture: the ground the
// codec interop tests stand on.
TEST(Interop, MakerAndPeerDecoderWork)
{
    TempDir dir;
    const std::string path = dir.file("red.png");
    ASSERT_TRUE(Interop::run(std::string(Interop::kMagick) + " -size 3x2 xc:'#FF0000' " + path));
    const Interop::PeerImage image = Interop::readWithOIIO(path);
    ASSERT_EQ(image.width, 3);
    ASSERT_EQ(image.height, 2);
    EXPECT_EQ(image.pixel(2, 1)[0], 255);
    EXPECT_EQ(image.pixel(2, 1)[1], 0);
    EXPECT_EQ(image.pixel(2, 1)[3], 255);
}
