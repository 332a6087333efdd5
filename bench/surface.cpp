// The picture in memory: handle copies against std::shared_ptr, and the memory-bound
// operations on a 1920x1080 ARGB frame against memcpy of the same bytes.

#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "bench/support/BenchRatio.h"
#include "ole/image/KvSurface.h"

using namespace Kv::Image;

namespace {

constexpr unsigned int kWidth = 1920;
constexpr unsigned int kHeight = 1080;
constexpr std::size_t kBytes = std::size_t(kWidth) * kHeight * 4;

Surface opaqueFrame()
{
    Surface s(kWidth, kHeight, ARGB, true, 0, 0, 0);
    FastMemSet(s.getDataPtr(), 0xFF336699u, s.getImageSize());
    return s;
}


void BM_SurfaceCopy(benchmark::State& state)
{
    KvBench::startASecondThread();  // both sides pay for atomic counts
    Surface s(16, 16, ARGB, true, 0, 0, 0);
    for (auto _ : state) {
        Surface copy(s);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_SurfaceCopy);

void BM_SharedPtrCopy(benchmark::State& state)
{
    KvBench::startASecondThread();
    auto p = std::make_shared<std::vector<unsigned char>>(1024);
    for (auto _ : state) {
        std::shared_ptr<std::vector<unsigned char>> copy(p);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_SharedPtrCopy);

void BM_MemcpyFrame(benchmark::State& state)
{
    std::vector<unsigned char> a(kBytes, 1), b(kBytes, 2);
    for (auto _ : state) {
        std::memcpy(b.data(), a.data(), kBytes);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kBytes);
}
BENCHMARK(BM_MemcpyFrame)->Unit(benchmark::kMicrosecond);

void BM_Flip(benchmark::State& state)
{
    Surface s = opaqueFrame();
    for (auto _ : state) {
        s.flip();
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kBytes);
}
BENCHMARK(BM_Flip)->Unit(benchmark::kMicrosecond);

void BM_BlitTo(benchmark::State& state)
{
    Surface src = opaqueFrame();
    Surface dst(kWidth, kHeight, ARGB, true, 0, 0, 0);
    std::memset(dst.getDataPtr(), 0, kBytes);
    for (auto _ : state) {
        src.blitTo(dst, 0, 0, 0xFFFFFFFFu, 0xFFFFFFFFu, 0, 0);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kBytes);
}
BENCHMARK(BM_BlitTo)->Unit(benchmark::kMicrosecond);

void BM_CopyBlit(benchmark::State& state)
{
    Surface src = opaqueFrame();
    Surface dst;
    for (auto _ : state) {
        dst.CopyBlit(src);  // a fresh frame each time, as a caller that keeps a copy pays
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kBytes);
}
BENCHMARK(BM_CopyBlit)->Unit(benchmark::kMicrosecond);

// What CopyBlit competes with: allocate a frame and memcpy into it.
void BM_NewAndMemcpyFrame(benchmark::State& state)
{
    std::vector<unsigned char> a(kBytes, 1);
    for (auto _ : state) {
        std::unique_ptr<unsigned char[]> b(new unsigned char[kBytes]);
        std::memcpy(b.get(), a.data(), kBytes);
        benchmark::DoNotOptimize(b.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kBytes);
}
BENCHMARK(BM_NewAndMemcpyFrame)->Unit(benchmark::kMicrosecond);

void BM_GetTransparency(benchmark::State& state)
{
    Surface s = opaqueFrame();
    for (auto _ : state) {
        s.rep()->transparency = Unknown;  // scan again, not the cached answer
        benchmark::DoNotOptimize(s.getTransparency());
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kBytes);
}
BENCHMARK(BM_GetTransparency)->Unit(benchmark::kMicrosecond);

}  // namespace

KV_BENCH_RATIO("BM_SurfaceCopy", "BM_SharedPtrCopy");
KV_BENCH_RATIO("BM_Flip", "BM_MemcpyFrame");
KV_BENCH_RATIO("BM_BlitTo", "BM_MemcpyFrame");
KV_BENCH_RATIO("BM_CopyBlit", "BM_NewAndMemcpyFrame");
KV_BENCH_RATIO("BM_CopyBlit", "BM_MemcpyFrame");
KV_BENCH_RATIO("BM_GetTransparency", "BM_MemcpyFrame");
KV_BENCH_MAIN()
