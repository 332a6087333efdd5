#pragma once
// Pictures and probes shared by the picture tests: what a call prints and whether that is a
// given assertion, pictures over exactly their bytes, numbered pictures and their lines, and a
// process of its own for the cases that need a plug-in list of their choosing.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "ole/image/KvSurface.h"
#include "tests/support/TestSupport.h"

namespace ImageTest {

using Kv::Image::Surface;
using Bytes = std::vector<unsigned char>;

// What `f` prints on standard output.
inline std::string printed(const std::function<void()>& f)
{
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}

// Whether `out` holds the assertion print of `condition` from ole/image/`file`.
inline bool hasAssertion(const std::string& out, const std::string& condition, const std::string& file)
{
    return out.find("assertion failed " + condition + " at ole/image/" + file + ":") != std::string::npos;
}

// A picture over exactly these bytes, so that the sanitizer sees any step past them.
inline Surface over(Bytes& memory, unsigned int w, unsigned int h, Kv::Image::Format format, unsigned short bpc,
                    unsigned short stride)
{
    Surface s(w, h, format, false, bpc, 0, stride);
    s.setDataPtr(memory.data(), int(memory.size()));
    return s;
}

// Bytes in which no two neighbours are alike.
inline Bytes pattern(std::size_t n)
{
    Bytes b(n);
    for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(i * 37 + 16);
    return b;
}

// An ARGB picture whose byte x of line y is (y + seed) * 16 + x.
inline Surface numbered(unsigned int w, unsigned int h, bool topDown = true, unsigned int seed = 0)
{
    Surface s(w, h, Kv::Image::ARGB, true, 0, 0, 0);
    for (unsigned int i = 0; i < s.getImageSize(); ++i)
        s.getDataPtr()[i] = static_cast<unsigned char>((i / s.getStride() + seed) * 16 + i % s.getStride());
    s.setIsTopDown(topDown);
    return s;
}

// The bytes of line y's pixels, without the padding.
inline Bytes line(const Surface& s, unsigned int y)
{
    const unsigned char* p = s.getDataPtr() + std::size_t(y) * s.getStride();
    return Bytes(p, p + (s.getWidth() * s.getBitsPerPixel() >> 3));
}

// The plug-in list is gathered once a process: `body` runs in a process of its own (a threadsafe
// death test) whose plug-in path is an empty folder, so that the only plug-ins are those it
// registers. The case passes when `body` returns ""; anything else is the failure's text.
template <class Body>
void inFreshProcess(Body body)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TempDir empty;
    ScopedEnv path("KV_plugin_path", empty.file("").c_str());
    EXPECT_EXIT(
        {
            const std::string failure = body();
            std::fputs(failure.c_str(), stderr);
            std::fflush(nullptr);
            std::_Exit(failure.empty() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

// "" when `ok`, else `what` as a line of failure text for inFreshProcess.
inline std::string check(bool ok, const std::string& what) { return ok ? "" : what + "\n"; }

}  // namespace ImageTest
