#include <gtest/gtest.h>

#include <exception>
#include <type_traits>

#include "ole/Kv/KvException.h"

namespace {

// Diagnostics that answer with fixed lines and count the calls.
struct FixedDiagnostics final : iDiagnostics {
    FixedDiagnostics() : previous(OS()->setDiagnostics(this)) {}
    ~FixedDiagnostics() { OS()->setDiagnostics(previous); }
    void describeContext(ContextLines& lines) override
    {
        ++calls;
        lines.push_back(LightweightString<char>("thread main"));
        lines.push_back(LightweightString<char>("frame 0"));
    }
    double currentTime() override { return 1.5; }
    iDiagnostics* previous;
    int calls = 0;
};

void throwRuntime() { throw Kv::Exception::RuntimeError("worker did not start", __FILE__, __LINE__); }

}  // namespace

TEST(KvException, CarriesKindMessagePlaceAndContext)
{
    static_assert(!std::is_base_of_v<std::exception, Kv::Exception::Base>);
    static_assert(std::is_base_of_v<Kv::Exception::Base, Kv::Exception::BadAlloc>);
    FixedDiagnostics diagnostics;
    try {
        throwRuntime();
        FAIL() << "no throw";
    } catch (const std::exception&) {
        FAIL() << "caught as a standard exception";
    } catch (Kv::Exception::Base& e) {
        EXPECT_STREQ(e.kind, "RuntimeError");
        EXPECT_STREQ(e.message, "worker did not start");
        EXPECT_STREQ(e.file, "tests/Kv/KvExceptionTest.cpp");  // the checkout's path is stripped
        EXPECT_GT(e.line, 0);
        ASSERT_EQ(e.context.size(), 2u);
        EXPECT_EQ(e.context[1], "frame 0");
        // A copy keeps the lines when the original lets go of them.
        Kv::Exception::Base copy = e;
        e.context.clear();
        ASSERT_EQ(copy.context.size(), 2u);
        EXPECT_TRUE(copy.context[0] == "thread main" && copy.context[0].useCount() == 1);
    }
    EXPECT_EQ(diagnostics.calls, 1);

    // The other two leave the context empty and ask nothing of the diagnostics.
    Kv::Exception::LogicError logic("bad order", "a.cpp", 3);
    Kv::Exception::BadAlloc oom("out of memory", "b.cpp", 4);
    EXPECT_STREQ(logic.kind, "LogicError");
    EXPECT_STREQ(oom.kind, "BadAlloc");
    EXPECT_TRUE(logic.context.empty() && oom.context.empty() && oom.line == 4);
    EXPECT_EQ(diagnostics.calls, 1);
}
