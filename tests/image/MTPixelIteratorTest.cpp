// The pixel iterator: every line once, failures that stop the hand-out, overlapping callers,
// the rectangle rules and the memory's edge, and (in processes of their own, since the
// iterator is made once per process) the number of workers and the failures of making them.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "ole/Kv/KvException.h"
#include "ole/image/MTPixelIterator.h"
#include "ole/platform/os/KvThread.h"
#include "tests/image/ImageTestPictures.h"

using Kv::Image::Surface;

namespace {

constexpr int kMaxLines = 16;
constexpr int kStride = 64;

// What the line functions below check against and record.
struct LineRun {
    unsigned char* base = nullptr;     // the destination pointer handed to iterate
    unsigned char* srcBase = nullptr;  // the source pointer, unless in place
    int top = 0, left = 0, width = 0, stride = kStride;
    bool inPlace = false;
    int failAt = -1;  // the line that fails, returning 42
    std::array<std::atomic<int>, 4096> visits{};
    std::atomic<int> wrongArguments{0};
};
LineRun* current = nullptr;

int recordLine(int param, int x, int y, int width, unsigned char* src, unsigned char* dst)
{
    LineRun& run = *current;
    const std::ptrdiff_t offset = std::ptrdiff_t(y - run.top) * run.stride;
    unsigned char* expectedSrc = run.inPlace ? run.base + offset : run.srcBase + offset;
    if (param != 7 || x != run.left || width != run.width || dst != run.base + offset || src != expectedSrc)
        run.wrongArguments.fetch_add(1);
    if (y >= 0 && y < int(run.visits.size())) run.visits[y].fetch_add(1);
    return y == run.failAt ? 42 : 0;
}

TEST(PixelIteratorThreads, EveryLineOfEverySmallRegionExactlyOnce)
{
    MTPixelIterator* it = MTPixelIterator::instance();
    std::vector<unsigned char> src(kMaxLines * kStride), dst(kMaxLines * kStride);
    for (int round = 0; round < 40; ++round)
        for (int top = 0; top < 6; ++top)
            for (int lines = 0; lines <= 10; ++lines) {
                // With a source and without, walking down and (from the last line) up.
                const bool upward = round % 4 >= 2;
                unsigned char* base = upward ? dst.data() + (kMaxLines - 1) * kStride : dst.data();
                LineRun run{.base = base, .srcBase = src.data() + (base - dst.data()), .top = top, .left = 3, .width = 5,
                            .stride = upward ? -kStride : kStride, .inPlace = round % 2 != 0};
                current = &run;
                const int result = it->iterate(7, recordLine, run.inPlace ? nullptr : run.srcBase, run.base, 3,
                                               top, 8, top + lines, 32, 32, run.stride, run.stride);
                ASSERT_EQ(result, 0);
                for (int y = 0; y < kMaxLines; ++y)
                    ASSERT_EQ(run.visits[y].load(), (y >= top && y < top + lines) ? 1 : 0)
                        << "line " << y << " of " << top << ".." << top + lines;
                ASSERT_EQ(run.wrongArguments.load(), 0);
            }
}

TEST(PixelIteratorThreads, AFailedLineStopsTheHandOutAndIsReturned)
{
    MTPixelIterator* it = MTPixelIterator::instance();
    std::vector<unsigned char> dst(4096 * 4);
    for (int failAt : {6, 7}) {
        LineRun run{.base = dst.data(), .width = 1, .stride = 4, .inPlace = true, .failAt = failAt};
        current = &run;
        EXPECT_EQ(it->iterate(7, recordLine, nullptr, dst.data(), 0, 0, 1, 4096, 32, 32, 4, 4), 42);
        EXPECT_EQ(run.visits[failAt].load(), 1);
        // The step of two lines that failed is not finished...
        EXPECT_TRUE(failAt == 7 || run.visits[7].load() == 0);
        // ...and the others stop after the step they hold.
        int done = 0;
        for (auto& v : run.visits) done += v.load();
        EXPECT_LT(done, 64);
        EXPECT_EQ(run.wrongArguments.load(), 0);
    }
}

// Each byte of a caller's 32-bit line is the source's plus the caller's number.
int addCaller(int param, int, int, int width, unsigned char* src, unsigned char* dst)
{
    for (int i = 0; i < width * 4; ++i) dst[i] = static_cast<unsigned char>(src[i] + param);
    return 0;
}

TEST(PixelIteratorThreads, OverlappingCallersEachGetTheirOwnLines)
{
    constexpr int kCallers = 4, kLines = 37, kWidth = 50;
    std::vector<std::thread> callers;
    std::atomic<int> wrong{0};
    for (int c = 1; c <= kCallers; ++c)
        callers.emplace_back([c, &wrong] {
            Surface src(kWidth, kLines, Kv::Image::ARGB, true, 0, 0, 0), dst(kWidth, kLines, Kv::Image::ARGB, true, 0, 0, 0);
            for (int round = 0; round < 50; ++round) {
                for (unsigned int i = 0; i < src.getImageSize(); ++i) src.getDataPtr()[i] = static_cast<unsigned char>(i * 7 + round);
                if (MTPixelIterator::iterate(c, addCaller, src, dst, nullptr) != 0) wrong.fetch_add(1);
                for (unsigned int i = 0; i < dst.getImageSize(); i += 4)
                    if (dst.getDataPtr()[i] != static_cast<unsigned char>(src.getDataPtr()[i] + c)) wrong.fetch_add(1);
            }
        });
    for (std::thread& t : callers) t.join();
    EXPECT_EQ(wrong.load(), 0);
}

// Records (y -> x, width, offset of dst from the surface's memory) for the rectangle tests.
struct Seen {
    std::array<std::atomic<int>, 64> x{}, width{};
    std::array<std::atomic<long>, 64> offset{};
    std::array<std::atomic<int>, 64> visits{};
    unsigned char* memory = nullptr;
};
Seen* seen = nullptr;

int seeLine(int, int x, int y, int width, unsigned char* src, unsigned char* dst)
{
    if (y < 0 || y >= 64 || src != dst) return 1;
    seen->visits[y].fetch_add(1);
    seen->x[y] = x;
    seen->width[y] = width;
    seen->offset[y] = long(dst - seen->memory);
    // Reads the whole line, for the sanitizer; only reads, since the lines of one test overlap.
    unsigned int sum = 0;
    for (int i = 0; i < width * 4; ++i) sum += dst[i];
    return sum == 0xFFFFFFFFu;
}

int linesSeen(const Seen& s)
{
    int n = 0;
    for (const auto& v : s.visits) n += v.load();
    return n;
}

TEST(PixelIteratorThreads, RectanglesAreClippedToThePictureOrMissIt)
{
    Surface picture(10, 8, Kv::Image::ARGB, true, 0, 0, 0);
    const long stride = long(picture.getStride());
    struct Case {
        TopDownRect rect;
        int left, top, right, bottom;  // the clipped region; right == left for none
    } cases[] = {
        {{2, 3, 7, 5}, 2, 3, 7, 5},        {{-4, -2, 3, 2}, 0, 0, 3, 2},     {{8, 6, 20, 30}, 8, 6, 10, 8},
        {{10, 0, 12, 8}, 0, 0, 0, 0},      {{0, 8, 10, 9}, 0, 0, 0, 0},      {{-5, 0, 0, 8}, 0, 0, 0, 0},
        {{0, -5, 10, 0}, 0, 0, 0, 0},
    };
    for (const Case& c : cases) {
        Seen s{.memory = picture.getDataPtr()};
        seen = &s;
        TopDownRect rect = c.rect;
        EXPECT_EQ(MTPixelIterator::iterate(0, seeLine, picture, &rect), 0);
        EXPECT_EQ(linesSeen(s), c.bottom - c.top) << rect.left << "," << rect.top << "," << rect.right << "," << rect.bottom;
        for (int y = c.top; y < c.bottom; ++y) {
            EXPECT_EQ(s.visits[y].load(), 1);
            EXPECT_EQ(s.x[y].load(), c.left);
            EXPECT_EQ(s.width[y].load(), c.right - c.left);
            EXPECT_EQ(s.offset[y].load(), y * stride + c.left * 4);
        }
    }
    Seen whole{.memory = picture.getDataPtr()};
    seen = &whole;
    EXPECT_EQ(MTPixelIterator::iterate(0, seeLine, picture, nullptr), 0);
    EXPECT_TRUE(linesSeen(whole) == 8 && whole.width[7].load() == 10);
}

TEST(PixelIteratorThreads, LinesBeyondThePicturesMemoryAreNotHandedOut)
{
    // Descriptors that claim more lines, or longer lines, than the memory holds.
    Surface tall(10, 6, Kv::Image::ARGB, true, 0, 0, 0);
    tall.setHeight(40);
    Seen s{.memory = tall.getDataPtr()};
    seen = &s;
    EXPECT_EQ(MTPixelIterator::iterate(0, seeLine, tall, nullptr), 0);
    EXPECT_EQ(linesSeen(s), 6);

    Surface wide(10, 6, Kv::Image::ARGB, true, 0, 0, 0);
    wide.setWidth(25);  // each line now runs 60 bytes into the next
    Seen w{.memory = wide.getDataPtr()};
    seen = &w;
    EXPECT_EQ(MTPixelIterator::iterate(0, seeLine, wide, nullptr), 0);
    EXPECT_EQ(linesSeen(w), 4) << "the fifth line's 100 bytes would end 20 bytes past the memory";

    // A source shorter than the destination limits the run too.
    Surface dst(10, 6, Kv::Image::ARGB, true, 0, 0, 0), src(10, 2, Kv::Image::ARGB, true, 0, 0, 0);
    src.setHeight(6);
    EXPECT_EQ(ImageTest::printed([&] { EXPECT_EQ(MTPixelIterator::iterate(0, addCaller, src, dst, nullptr), 0); }), "");
}

TEST(PixelIteratorThreads, MismatchedOrMissingPicturesPrintTheAssertions)
{
    Surface dst(4, 4, Kv::Image::ARGB, true, 0, 0, 0), src(5, 4, Kv::Image::ARGB, true, 0, 0, 0);
    const std::string out = ImageTest::printed([&] {
        MTPixelIterator::iterate(0, addCaller, src, dst, nullptr);
        MTPixelIterator::iterate(0, addCaller, Surface(), nullptr);
    });
    EXPECT_TRUE(ImageTest::hasAssertion(out, "( src.getDataPtr() == NULL ) || ( ( src.getWidth() == dst.getWidth() ) && "
                                             "( src.getHeight() == dst.getHeight() ) )", "MTPixelIterator.cpp"))
        << out;
    EXPECT_TRUE(ImageTest::hasAssertion(out, "dst.getDataPtr() != NULL", "MTPixelIterator.cpp"));
}

TEST(PixelIteratorThreads, ACommandWithoutParametersIsALogicError)
{
    MTPixelIteratorCmd cmd(static_cast<KvDC::Receiver<MTPixelIteratorCmd>*>(nullptr));
    KvDC::NoCtx ctx;
    try {
        MTPixelIterator::instance()->executeCommand(cmd, ctx);
        ADD_FAILURE() << "no exception";
    } catch (const Kv::Exception::LogicError& e) {
        EXPECT_STREQ(e.kind, "LogicError");
        EXPECT_STREQ(e.message, "MTPixelIterator: Null parameters passed to executeCommand!");
        EXPECT_STREQ(e.file, "ole/image/MTPixelIterator.cpp");
    }
}

// --- In a process of its own ---------------------------------------------------------------

constexpr const char* kChildSwitch = "KV_TEST_PIXEL_ITERATOR_CHILD";

// Runs this test program again with only the child test, and `scenario` in its environment.
void expectChildPasses(const std::string& scenario)
{
    const std::string command = std::string(kChildSwitch) + "=" + scenario + " '" +
                                std::filesystem::read_symlink("/proc/self/exe").string() +
                                "' --gtest_filter=PixelIteratorChild.Scenario";
    FILE* child = popen(command.c_str(), "r");
    ASSERT_TRUE(child);
    std::string output;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, child)) > 0;) output.append(buffer, n);
    const int status = pclose(child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << output;
    EXPECT_NE(output.find("[  PASSED  ] 1 test"), std::string::npos) << output;
}

TEST(PixelIteratorProcessThreads, SixteenProcessorsGiveFourWorkers) { expectChildPasses("processors=16"); }
TEST(PixelIteratorProcessThreads, UnknownProcessorsGiveOneWorker) { expectChildPasses("processors=0"); }
TEST(PixelIteratorProcessThreads, AWorkerThatCannotStartIsARuntimeError) { expectChildPasses("threads-fail"); }

struct FixedProcessors final : iSystemInfo {
    unsigned int processorCount() override { return count; }
    unsigned int count = 0;
};

// Watches (and can refuse) every thread that co_create makes.
struct WatchedThreads final : iThreads {
    unsigned short create(ThreadFunction f, const char* name, int priority, void* arg, int mask,
                          unsigned int stack) override
    {
        names.emplace_back(name);
        priorities.push_back(priority);
        masks.push_back(mask);
        return refuse ? 0 : previous->create(f, name, priority, arg, mask, stack);
    }
    Kv::Ptr<iThread> get(unsigned short id) override { return previous->get(id); }
    Kv::Ptr<iThread> current() override { return previous->current(); }
    iThreads* previous = nullptr;
    bool refuse = false;
    std::vector<std::string> names;
    std::vector<int> priorities, masks;
};

std::atomic<int> inFlight{0};

// The first line of each step waits until `param` steps are under way at once: only as many
// workers as that can get it there.
int waitForCompany(int param, int, int y, int, unsigned char*, unsigned char*)
{
    if (y % 2 != 0) return 0;
    inFlight.fetch_add(1);
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (inFlight.load() < param)
        if (std::chrono::steady_clock::now() > until) return 1;
        else std::this_thread::sleep_for(std::chrono::microseconds(200));
    return 0;
}

TEST(PixelIteratorChild, Scenario)
{
    const char* scenario = std::getenv(kChildSwitch);
    if (!scenario) GTEST_SKIP() << "runs only in a process of its own";
    static FixedProcessors processors;
    static WatchedThreads threads;
    threads.previous = Kv::Platform::setThreads(&threads);
    const std::string which = scenario;

    if (which.rfind("processors=", 0) == 0) {
        processors.count = unsigned(std::atoi(scenario + 11));
        OS()->setSystemInfo(&processors);
        const int expected = processors.count == 0 ? 1 : std::min(4, int(processors.count));

        // A rectangle that misses the picture touches nothing: no worker is started for it.
        Surface picture(4, 4, Kv::Image::ARGB, true, 0, 0, 0);
        TopDownRect outside(4, 0, 8, 4);
        EXPECT_EQ(MTPixelIterator::iterate(0, waitForCompany, picture, &outside), 0);
        EXPECT_TRUE(threads.names.empty());

        MTPixelIterator* it = MTPixelIterator::instance();
        EXPECT_EQ(it, MTPixelIterator::instance());
        ASSERT_EQ(it->workerCount(), std::size_t(expected));
        ASSERT_EQ(threads.names.size(), std::size_t(expected));
        for (int i = 0; i < expected; ++i) {
            EXPECT_EQ(threads.names[i], "$Pixel Iterator Thread");
            EXPECT_EQ(threads.priorities[i], 1);
            EXPECT_EQ(threads.masks[i], 1 << i);
        }
        Surface lines(1, 2 * expected, Kv::Image::ARGB, true, 0, 0, 0);
        EXPECT_EQ(MTPixelIterator::iterate(expected, waitForCompany, lines, nullptr), 0)
            << "fewer than " << expected << " workers at once";
    } else if (which == "threads-fail") {
        threads.refuse = true;
        try {
            MTPixelIterator::instance();
            ADD_FAILURE() << "no exception";
        } catch (const Kv::Exception::RuntimeError& e) {
            EXPECT_STREQ(e.message, "MTPixelIterator: Failed to start worker thread!");
            EXPECT_STREQ(e.file, "ole/image/MTPixelIterator.cpp");
            EXPECT_FALSE(e.context.empty());
        }
        // The same thread may try again.
        threads.refuse = false;
        EXPECT_GE(MTPixelIterator::instance()->workerCount(), 1u);
    } else {
        ADD_FAILURE() << "unknown scenario " << which;
    }
    Kv::Platform::setThreads(threads.previous);
}

}  // namespace
