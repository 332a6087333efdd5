// The libswscale plug-in on 1920x1080 frames, through the library's plug-in bridge as the
// converters reach it: UYVY to 8-bit ARGB against libyuv and against a direct libswscale call,
// and a 1920x1080 to 1280x720 ARGB resize against a direct libswscale call. The direct calls use
// the plug-in's own flags (Lanczos, exact rounding, full chroma), and for UYVY to ARGB also
// libswscale's defaults, the fast path that rounds less carefully. The plug-in's UYVY to ARGB
// runs on the pixel iterator's workers while the caller sleeps, so it is timed by the clock on
// the wall; the peers run on the calling thread alone.

extern "C" {
#include <libswscale/swscale.h>
}
#include <libyuv.h>

#include <cstdint>
#include <vector>

#include "bench/support/BenchRatio.h"
#include "ole/image/KvSurface.h"
#include "ole/image/iImageConvert.h"

using namespace Kv::Image;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kSmallWidth = 1280;
constexpr int kSmallHeight = 720;
constexpr int kAccurate = SWS_LANCZOS | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;

// A frame of BT.709 video-range UYVY with some texture in it.
Surface uyvyFrame()
{
    Surface s(kWidth, kHeight, UYVY, true, 8, 0, 0);
    unsigned char* p = s.getDataPtr();
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; x += 2) {
            unsigned char* q = p + std::size_t(y) * s.getStride() + x * 2;
            q[0] = static_cast<unsigned char>(16 + (x / 7 + y) % 224);
            q[1] = static_cast<unsigned char>(16 + (x + y / 3) % 219);
            q[2] = static_cast<unsigned char>(16 + (x / 5 + 2 * y) % 224);
            q[3] = static_cast<unsigned char>(16 + (x * 3 + y) % 219);
        }
    s.setColorimetry(C709);
    s.setIsVideoGamutScaled(true);
    return s;
}

Surface argbFrame(int width, int height)
{
    Surface s(unsigned(width), unsigned(height), ARGB, true, 8, 0, 0);
    unsigned char* p = s.getDataPtr();
    for (std::size_t i = 0; i < s.getImageSize(); ++i) p[i] = static_cast<unsigned char>((i * 2654435761u) >> 24);
    return s;
}

void BM_PluginUyvyToArgb(benchmark::State& state)
{
    const Surface src = uyvyFrame();
    Surface dst(kWidth, kHeight, ARGB, true, 8, 0, 0);
    if (!iImageConvert::doConvert(src, dst)) return state.SkipWithError("no plug-in took the conversion");
    for (auto _ : state) {
        iImageConvert::doConvert(src, dst);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_PluginUyvyToArgb)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LibyuvUyvyToArgb(benchmark::State& state)
{
    const Surface src = uyvyFrame();
    std::vector<std::uint8_t> dst(std::size_t(kWidth) * kHeight * 4);
    for (auto _ : state) {
        libyuv::UYVYToARGB(src.getDataPtr(), kWidth * 2, dst.data(), kWidth * 4, kWidth, kHeight);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_LibyuvUyvyToArgb)->Unit(benchmark::kMillisecond);

// libswscale called directly on the frame's own memory, with the given flags.
void BM_SwscaleUyvyToArgb(benchmark::State& state, int flags)
{
    const Surface src = uyvyFrame();
    std::vector<std::uint8_t> dst(std::size_t(kWidth) * kHeight * 4 + 4096);
    SwsContext* context = sws_getContext(kWidth, kHeight, AV_PIX_FMT_UYVY422, kWidth, kHeight, AV_PIX_FMT_BGRA,
                                         flags, nullptr, nullptr, nullptr);
    const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
    sws_setColorspaceDetails(context, bt709, 0, bt709, 1, 0, 1 << 16, 1 << 16);
    const std::uint8_t* in[4] = {src.getDataPtr()};
    const int inStride[4] = {kWidth * 2};
    std::uint8_t* out[4] = {dst.data()};
    const int outStride[4] = {kWidth * 4};
    for (auto _ : state) {
        sws_scale(context, in, inStride, 0, kHeight, out, outStride);
        benchmark::ClobberMemory();
    }
    sws_freeContext(context);
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK_CAPTURE(BM_SwscaleUyvyToArgb, accurate, kAccurate)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_SwscaleUyvyToArgb, defaults, SWS_BILINEAR)->Unit(benchmark::kMillisecond);

void BM_PluginResizeArgb(benchmark::State& state)
{
    const Surface src = argbFrame(kWidth, kHeight);
    Surface dst(kSmallWidth, kSmallHeight, ARGB, true, 8, 0, 0);
    if (!iImageConvert::doResize(src, dst)) return state.SkipWithError("no plug-in took the resize");
    for (auto _ : state) {
        iImageConvert::doResize(src, dst);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kSmallWidth * kSmallHeight);
}
BENCHMARK(BM_PluginResizeArgb)->Unit(benchmark::kMillisecond);

void BM_SwscaleResizeArgb(benchmark::State& state)
{
    const Surface src = argbFrame(kWidth, kHeight);
    std::vector<std::uint8_t> dst(std::size_t(kSmallWidth) * kSmallHeight * 4 + 4096);
    SwsContext* context = sws_getContext(kWidth, kHeight, AV_PIX_FMT_BGRA, kSmallWidth, kSmallHeight,
                                         AV_PIX_FMT_BGRA, kAccurate, nullptr, nullptr, nullptr);
    const std::uint8_t* in[4] = {src.getDataPtr()};
    const int inStride[4] = {kWidth * 4};
    std::uint8_t* out[4] = {dst.data()};
    const int outStride[4] = {kSmallWidth * 4};
    for (auto _ : state) {
        sws_scale(context, in, inStride, 0, kHeight, out, outStride);
        benchmark::ClobberMemory();
    }
    sws_freeContext(context);
    state.SetItemsProcessed(state.iterations() * kSmallWidth * kSmallHeight);
}
BENCHMARK(BM_SwscaleResizeArgb)->Unit(benchmark::kMillisecond);

KV_BENCH_RATIO("BM_PluginUyvyToArgb/real_time", "BM_LibyuvUyvyToArgb");
KV_BENCH_RATIO("BM_PluginUyvyToArgb/real_time", "BM_SwscaleUyvyToArgb/accurate");
KV_BENCH_RATIO("BM_PluginUyvyToArgb/real_time", "BM_SwscaleUyvyToArgb/defaults");
KV_BENCH_RATIO("BM_SwscaleUyvyToArgb/defaults", "BM_LibyuvUyvyToArgb");
KV_BENCH_RATIO("BM_PluginResizeArgb", "BM_SwscaleResizeArgb");

}  // namespace

KV_BENCH_MAIN()
