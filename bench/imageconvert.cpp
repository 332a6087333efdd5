// Repacking and field work on a 1920x1080 frame: reorder's RGB to ARGB against libyuv's
// RGB24ToARGB, and the split and weave of the fields against memcpy of the same bytes.

#include <libyuv.h>

#include <cstring>
#include <vector>

#include "bench/support/BenchRatio.h"
#include "ole/image/ImageConvert.h"

using namespace Kv::Image;

namespace {

constexpr unsigned int kWidth = 1920;
constexpr unsigned int kHeight = 1080;
constexpr std::size_t kRGBBytes = std::size_t(kWidth) * kHeight * 3;
constexpr std::size_t kARGBBytes = std::size_t(kWidth) * kHeight * 4;

void fill(unsigned char* p, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i) p[i] = static_cast<unsigned char>(i * 7 + 3);
}

void BM_ReorderRGBToARGB(benchmark::State& state)
{
    Surface src(kWidth, kHeight, RGB, true, 0, 0, 0), dst(kWidth, kHeight, ARGB, true, 0, 0, 0);
    fill(src.getDataPtr(), kRGBBytes);
    for (auto _ : state) {
        ImageConverter::reorder(src, dst);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * (kRGBBytes + kARGBBytes));
}
BENCHMARK(BM_ReorderRGBToARGB)->Unit(benchmark::kMicrosecond);

void BM_LibyuvRGB24ToARGB(benchmark::State& state)
{
    std::vector<unsigned char> src(kRGBBytes), dst(kARGBBytes);
    fill(src.data(), kRGBBytes);
    for (auto _ : state) {
        libyuv::RGB24ToARGB(src.data(), kWidth * 3, dst.data(), kWidth * 4, kWidth, kHeight);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * (kRGBBytes + kARGBBytes));
}
BENCHMARK(BM_LibyuvRGB24ToARGB)->Unit(benchmark::kMicrosecond);
KV_BENCH_RATIO("BM_ReorderRGBToARGB", "BM_LibyuvRGB24ToARGB");

void BM_DeInterleave(benchmark::State& state)
{
    Surface frame(kWidth, kHeight, ARGB, true, 0, 0, 0);
    fill(frame.getDataPtr(), kARGBBytes);
    frame.setIsTopDown(true);
    Surface out1(kWidth, kHeight / 2, ARGB, true, 0, 0, 0), out2(kWidth, kHeight / 2, ARGB, true, 0, 0, 0);
    for (auto _ : state) {
        ImageConverter::deInterleave(frame, out1, out2);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kARGBBytes);
}
BENCHMARK(BM_DeInterleave)->Unit(benchmark::kMicrosecond);

void BM_Interleave(benchmark::State& state)
{
    Surface field1(kWidth, kHeight / 2, ARGB, true, 0, 0, 0), field2(kWidth, kHeight / 2, ARGB, true, 0, 0, 0);
    fill(field1.getDataPtr(), kARGBBytes / 2);
    fill(field2.getDataPtr(), kARGBBytes / 2);
    Surface frame(kWidth, kHeight, ARGB, true, 0, 0, 0);
    for (auto _ : state) {
        ImageConverter::interleave(field1, field2, frame, true);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kARGBBytes);
}
BENCHMARK(BM_Interleave)->Unit(benchmark::kMicrosecond);

// The same bytes in one piece: the bandwidth that a line-by-line copy can hope to approach.
void BM_MemcpyFrame(benchmark::State& state)
{
    std::vector<unsigned char> a(kARGBBytes), b(kARGBBytes);
    fill(a.data(), kARGBBytes);
    for (auto _ : state) {
        std::memcpy(b.data(), a.data(), kARGBBytes);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kARGBBytes);
}
BENCHMARK(BM_MemcpyFrame)->Unit(benchmark::kMicrosecond);
KV_BENCH_RATIO("BM_DeInterleave", "BM_MemcpyFrame");
KV_BENCH_RATIO("BM_Interleave", "BM_MemcpyFrame");

}  // namespace

KV_BENCH_MAIN()
