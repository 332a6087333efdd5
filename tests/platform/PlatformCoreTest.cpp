// Memory routing, the assertion print and text conversion.

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <thread>
#include <vector>

#include "ole/misc/LightweightString.h"
#include "ole/misc/StdAllocator.h"
#include "ole/platform/os/KvAssert.h"
#include "ole/platform/os/OS.h"
#include "ole/platform/text/KvText.h"
#include "tests/support/CountingMemory.h"

// A sanitizer puts its own operator new in front of the platform's.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KV_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define KV_TEST_SANITIZED 1
#endif
#endif

#ifdef KV_TEST_SANITIZED
#define SKIP_IF_SANITIZED() GTEST_SKIP() << "the sanitizer's operator new stands before the platform's"
#else
#define SKIP_IF_SANITIZED() (void)0
#endif

namespace {

struct ServiceFailure {};

// Counts the blocks that the installing thread takes and gives back, or makes that thread's
// allocations fail; other threads pass straight through.
class ThisThreadMemory final : public iMemory {
public:
    explicit ThisThreadMemory(bool fail = false) : fail_(fail), previous_(OS()->setMemory(this)) {}
    ~ThisThreadMemory() { OS()->setMemory(previous_); }
    void* allocate(std::size_t bytes) override
    {
        if (std::this_thread::get_id() == owner_) {
            if (fail_) throw ServiceFailure();
            ++allocations;
        }
        return previous_->allocate(bytes);
    }
    void release(void* block) override
    {
        releases += std::this_thread::get_id() == owner_;
        previous_->release(block);
    }
    int allocations = 0, releases = 0;

private:
    const bool fail_;
    iMemory* previous_;
    const std::thread::id owner_ = std::this_thread::get_id();
};

// Keeps the optimiser from eliding a new and delete pair whose block is never used.
template <class T>
T* used(T* block)
{
    asm volatile("" : : "g"(block) : "memory");
    return block;
}

struct alignas(64) Wide {
    char bytes[64];
};

TEST(PlatformMemory, StringsAndContainersDrawOnTheInstalledService)
{
    iMemory* stock = OS()->memory();
    void* a = stock->allocate(0);
    void* b = stock->allocate(0);
    EXPECT_TRUE(a && b && a != b) << "every block has an address of its own";
    stock->release(a);
    stock->release(b);
    {
        CountingMemory counting;
        {
            LightweightString<char> text("through the service");
            std::vector<int, StdAllocator<int>> numbers(1000);
            EXPECT_GE(counting.allocations.load(), 2);
        }
        EXPECT_GE(counting.releases.load(), 2);
        EXPECT_EQ(OS()->setMemory(nullptr), &counting);
        EXPECT_EQ(OS()->memory(), stock) << "null puts the stock service back";
        OS()->setMemory(&counting);
    }
    EXPECT_EQ(OS()->memory(), stock);
}

TEST(PlatformMemory, EveryOperatorNewFormDrawsOnTheService)
{
    SKIP_IF_SANITIZED();
    std::uintptr_t misaligned = 0;
    int allocations, releases;
    {
        ThisThreadMemory memory;
        delete used(new int(1));
        delete[] used(new int[10]);
        delete used(new (std::nothrow) int(2));
        delete[] used(new (std::nothrow) int[3]);
        Wide* wide = used(new Wide);
        Wide* wides = used(new Wide[3]);
        void* nothrowWide = ::operator new(100, std::align_val_t(256), std::nothrow);
        misaligned = reinterpret_cast<std::uintptr_t>(wide) % 64 + reinterpret_cast<std::uintptr_t>(wides) % 64 +
                     reinterpret_cast<std::uintptr_t>(nothrowWide) % 256;
        delete wide;
        delete[] wides;
        ::operator delete(nothrowWide, std::align_val_t(256), std::nothrow);
        allocations = memory.allocations;
        releases = memory.releases;
    }
    EXPECT_EQ(misaligned, 0u);
    EXPECT_TRUE(allocations == 7 && releases == 7) << "each block, aligned ones included, went back to the service";
}

TEST(PlatformMemory, NothrowFormsTurnAnyFailureIntoNull)
{
    SKIP_IF_SANITIZED();
    void *plain, *array, *aligned;
    bool passedOn = false;
    {
        ThisThreadMemory failing(true);
        plain = ::operator new(16, std::nothrow);
        array = ::operator new[](16, std::nothrow);
        aligned = ::operator new(16, std::align_val_t(64), std::nothrow);
        try {
            (void)::operator new(16);
        } catch (const ServiceFailure&) {
            passedOn = true;
        }
    }
    EXPECT_TRUE(!plain && !array && !aligned);
    EXPECT_TRUE(passedOn) << "the throwing form passes on what the service throws";
    const volatile std::size_t beyondAnyBlock = SIZE_MAX - 8;  // size plus alignment overflows
    EXPECT_EQ(::operator new(beyondAnyBlock, std::align_val_t(64), std::nothrow), nullptr);
}

TEST(PlatformAssert, PrintsConditionAndPlaceAndGoesOn)
{
    testing::internal::CaptureStdout();
    KV_ASSERT(1 + 1 == 2);
    const int line = __LINE__ + 1;
    KV_ASSERT(1 + 1 == 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "assertion failed 1 + 1 == 3 at tests/platform/PlatformCoreTest.cpp:" + std::to_string(line) + "\n");
}

TEST(PlatformText, UTF8RoundTripAndReplacementOfBadText)
{
    const LightweightString<wchar_t> wide(L"a\u00E9\u20AC\U0001F600");
    const LightweightString<char> narrow = toUTF8(wide);
    EXPECT_EQ(narrow, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(fromUTF8(narrow), wide);
    EXPECT_TRUE(toUTF8(LightweightString<wchar_t>()).empty() && fromUTF8(static_cast<const char*>(nullptr)).empty());

    const wchar_t badWide[] = {L'x', wchar_t(0xD800), wchar_t(0x110000), wchar_t(-1), 0};
    EXPECT_EQ(toUTF8(badWide), "x\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");

    // One replacement for each maximal bad piece.
    const std::pair<const char*, const wchar_t*> cases[] = {
        {"\xC0\xAF", L"\uFFFD\uFFFD"},                      // overlong lead, lone continuation
        {"a\xE2\x82z", L"a\uFFFDz"},                       // cut short
        {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},           // a surrogate
        {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"}, // above U+10FFFF
        {"\xE0\x80\x80", L"\uFFFD\uFFFD\uFFFD"},           // overlong three-byte form
        {"\xF0\x9F\x98", L"\uFFFD"},                       // cut short at the end
        {"\xFF!", L"\uFFFD!"}};
    for (const auto& [utf8, expected] : cases) EXPECT_EQ(fromUTF8(utf8), expected) << utf8;
}

}  // namespace
