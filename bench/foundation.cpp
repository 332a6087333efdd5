// Foundation: string and pointer copies against the standard library's, appends, and the
// splitter against a std::string_view splitter.

#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/support/BenchRatio.h"
#include "ole/Kv/KvPtr.h"
#include "ole/misc/KvSplit.h"
#include "ole/misc/LightweightString.h"

namespace {

struct Payload : iObject {
    int value = 1;
};

const char* const kText = "/mnt/scans/reel_0042/frames/frame_0001234.dpx";
const wchar_t* const kWide = L"/mnt/scans/reel_0042/frames/frame_0001234.dpx";

void BM_KvPtrCopy(benchmark::State& state)
{
    Kv::Ptr<Payload> p(new Payload);
    for (auto _ : state) {
        Kv::Ptr<Payload> copy(p);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_KvPtrCopy);

void BM_SharedPtrCopy(benchmark::State& state)
{
    auto p = std::make_shared<Payload>();
    for (auto _ : state) {
        std::shared_ptr<Payload> copy(p);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_SharedPtrCopy);

void BM_LightweightStringCopy(benchmark::State& state)
{
    const LightweightString<char> s(kText);
    for (auto _ : state) {
        LightweightString<char> copy(s);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_LightweightStringCopy);

void BM_LightweightWStringCopy(benchmark::State& state)
{
    const LightweightString<wchar_t> s(kWide);
    for (auto _ : state) {
        LightweightString<wchar_t> copy(s);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_LightweightWStringCopy);

void BM_StdStringCopy(benchmark::State& state)
{
    const std::string s(kText);
    for (auto _ : state) {
        std::string copy(s);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_StdStringCopy);

void BM_StdWStringCopy(benchmark::State& state)
{
    const std::wstring s(kWide);
    for (auto _ : state) {
        std::wstring copy(s);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_StdWStringCopy);

// The same copies once the process has started a second thread: from then on both libraries
// pay for an atomic count. Registered after the single-threaded runs, so those stay as they are.

void BM_KvPtrCopyThreaded(benchmark::State& state)
{
    KvBench::startASecondThread();
    BM_KvPtrCopy(state);
}

void BM_SharedPtrCopyThreaded(benchmark::State& state)
{
    KvBench::startASecondThread();
    BM_SharedPtrCopy(state);
}

void BM_LightweightStringCopyThreaded(benchmark::State& state)
{
    KvBench::startASecondThread();
    BM_LightweightStringCopy(state);
}

// Building a 4096-character text from 8-character pieces.
void BM_LightweightStringAppend(benchmark::State& state)
{
    for (auto _ : state) {
        LightweightString<char> s;
        for (int i = 0; i < 512; ++i) s += "abcdefgh";
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(BM_LightweightStringAppend);

void BM_StdStringAppend(benchmark::State& state)
{
    for (auto _ : state) {
        std::string s;
        for (int i = 0; i < 512; ++i) s += "abcdefgh";
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(BM_StdStringAppend);

void BM_LightweightWStringAppend(benchmark::State& state)
{
    for (auto _ : state) {
        LightweightString<wchar_t> s;
        for (int i = 0; i < 512; ++i) s += L"abcdefgh";
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(BM_LightweightWStringAppend);

void BM_StdWStringAppend(benchmark::State& state)
{
    for (auto _ : state) {
        std::wstring s;
        for (int i = 0; i < 512; ++i) s += L"abcdefgh";
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(BM_StdWStringAppend);

// A line of a 3D table file: numbers separated by runs of blanks.
const char* const kLine = "0.125000  0.250000   0.500000 0.062500  0.031250   0.015625 0.007812  0.003906";

void BM_SplitIf(benchmark::State& state)
{
    const LightweightString<char> line(kLine);
    Kv::StringToVec<LightweightString<char>>::VecT out;
    for (auto _ : state) {
        out.clear();
        Kv::splitIf(line, Kv::IsMatchingChar<char>(' '), out, Kv::SplitMergeRuns);
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_SplitIf);

// What a user would write with the standard library: views into the line, then owning
// strings for the pieces, as splitIf hands out.
void BM_StringViewSplit(benchmark::State& state)
{
    const std::string line(kLine);
    std::vector<std::string> out;
    for (auto _ : state) {
        out.clear();
        std::string_view rest(line);
        while (!rest.empty()) {
            const size_t at = rest.find(' ');
            const std::string_view piece = rest.substr(0, at);
            if (!piece.empty()) out.emplace_back(piece);
            if (at == std::string_view::npos) break;
            rest.remove_prefix(at + 1);
        }
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_StringViewSplit);

BENCHMARK(BM_KvPtrCopyThreaded);
BENCHMARK(BM_SharedPtrCopyThreaded);
BENCHMARK(BM_LightweightStringCopyThreaded);

}  // namespace

KV_BENCH_RATIO("BM_KvPtrCopy", "BM_SharedPtrCopy");
KV_BENCH_RATIO("BM_LightweightStringCopy", "BM_SharedPtrCopy");
KV_BENCH_RATIO("BM_LightweightStringCopy", "BM_StdStringCopy");
KV_BENCH_RATIO("BM_KvPtrCopyThreaded", "BM_SharedPtrCopyThreaded");
KV_BENCH_RATIO("BM_LightweightStringCopyThreaded", "BM_SharedPtrCopyThreaded");
KV_BENCH_RATIO("BM_LightweightWStringCopy", "BM_StdWStringCopy");
KV_BENCH_RATIO("BM_LightweightStringAppend", "BM_StdStringAppend");
KV_BENCH_RATIO("BM_LightweightWStringAppend", "BM_StdWStringAppend");
KV_BENCH_RATIO("BM_SplitIf", "BM_StringViewSplit");
KV_BENCH_MAIN()
