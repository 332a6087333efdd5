// TGA at 1920x1080, 32 bits: loading plain and run-length encoded files of a flat picture and
// of a noisy one, and writing them run-length encoded, each beside OpenImageIO doing the same
// job on the same file or the same pixels. OpenImageIO runs with one thread, as our codec
// does, and keeps alpha as it is in the file (no multiplication into the colours).

#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>

#include "bench/support/BenchRatio.h"
#include "ole/image/tgaload.h"
#include "ole/platform/text/InputStream.h"
#include "ole/platform/text/KvText.h"

using namespace Kv::Image;

namespace {

constexpr unsigned int kWidth = 1920;
constexpr unsigned int kHeight = 1080;

// A title card: bands of flat colour with a box across them.
Surface flatPicture()
{
    Surface s(kWidth, kHeight, ARGB, true, 0, 0, 0);
    for (unsigned int y = 0; y < kHeight; ++y) {
        auto* line = reinterpret_cast<std::uint32_t*>(s.getRawLinePtr(y));
        for (unsigned int x = 0; x < kWidth; ++x) {
            const bool box = x >= 400 && x < 1500 && y >= 300 && y < 800;
            line[x] = box ? 0xFFF0F0F0u : 0xFF000000u | (0x203040u * (y / 120 + 1));
        }
    }
    return s;
}

// Grain everywhere: hardly two equal neighbours, so the encoder writes raw packets.
Surface noisyPicture()
{
    Surface s(kWidth, kHeight, ARGB, true, 0, 0, 0);
    std::mt19937 random(11);
    for (unsigned int y = 0; y < kHeight; ++y) {
        auto* line = reinterpret_cast<std::uint32_t*>(s.getRawLinePtr(y));
        for (unsigned int x = 0; x < kWidth; ++x) line[x] = random() | 0xFF000000u;
    }
    return s;
}

struct Files {
    Files()
    {
        OIIO::attribute("threads", 1);
        std::filesystem::create_directories(dir);
        saveTGAImage(noisy, wide(raw), false);
        saveTGAImage(flat, wide(flatRle), true);
        saveTGAImage(noisy, wide(noisyRle), true);
    }
    ~Files() { std::filesystem::remove_all(dir); }

    std::string path(const char* leaf) const { return (dir / leaf).string(); }
    static LightweightString<wchar_t> wide(const std::string& p) { return fromUTF8(p.c_str()); }

    std::filesystem::path dir = std::filesystem::temp_directory_path() / ("bench_tga_" + std::to_string(::getpid()));
    Surface flat = flatPicture();
    Surface noisy = noisyPicture();
    std::string raw = path("noisy-raw.tga");
    std::string flatRle = path("flat-rle.tga");
    std::string noisyRle = path("noisy-rle.tga");
};

const Files& files()
{
    static const Files f;
    return f;
}

const std::string& fileOf(int which)
{
    return which == 0 ? files().raw : which == 1 ? files().flatRle : files().noisyRle;
}

// As the library's loader does: a fresh surface and a file stream, size first, then the picture.
void BM_TgaLoad_Ours(benchmark::State& state)
{
    const LightweightString<wchar_t> path = Files::wide(fileOf(int(state.range(0))));
    for (auto _ : state) {
        SimpleFileInputStream in(path);
        int width = 0, height = 0;
        getTGAImageSize(&in, width, height);
        in.rewind();
        Surface image;
        if (!loadTGAImage(&in, image)) state.SkipWithError("load failed");
        benchmark::DoNotOptimize(image.getDataPtr());
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kWidth * kHeight * 4);
}

// A surface that keeps its memory from one load to the next, as a player of a TGA sequence has.
void BM_TgaLoadReused_Ours(benchmark::State& state)
{
    const LightweightString<wchar_t> path = Files::wide(fileOf(int(state.range(0))));
    Surface image;
    for (auto _ : state) {
        SimpleFileInputStream in(path);
        if (!loadTGAImage(&in, image)) state.SkipWithError("load failed");
        benchmark::DoNotOptimize(image.getDataPtr());
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kWidth * kHeight * 4);
}

void BM_TgaLoad_OIIO(benchmark::State& state)
{
    const std::string& path = fileOf(int(state.range(0)));
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    std::vector<unsigned char> pixels(std::size_t(kWidth) * kHeight * 4);
    for (auto _ : state) {
        auto in = OIIO::ImageInput::open(path, &config);
        if (!in || !in->read_image(0, 0, 0, 4, OIIO::TypeDesc::UINT8, pixels.data()))
            state.SkipWithError("OpenImageIO load failed");
        benchmark::DoNotOptimize(pixels.data());
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kWidth * kHeight * 4);
}

void BM_TgaSaveRle_Ours(benchmark::State& state)
{
    const Surface& picture = state.range(0) == 1 ? files().flat : files().noisy;
    const LightweightString<wchar_t> path = Files::wide(files().path("ours-out.tga"));
    for (auto _ : state)
        if (!saveTGAImage(picture, path, true)) state.SkipWithError("save failed");
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kWidth * kHeight * 4);
}

void BM_TgaSaveRle_OIIO(benchmark::State& state)
{
    const Surface& picture = state.range(0) == 1 ? files().flat : files().noisy;
    const std::string path = files().path("oiio-out.tga");
    OIIO::ImageSpec spec(kWidth, kHeight, 4, OIIO::TypeDesc::UINT8);
    spec.attribute("compression", "rle");
    for (auto _ : state) {
        auto out = OIIO::ImageOutput::create(path);
        if (!out || !out->open(path, spec) || !out->write_image(OIIO::TypeDesc::UINT8, picture.getDataPtr()) ||
            !out->close())
            state.SkipWithError("OpenImageIO save failed");
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * kWidth * kHeight * 4);
}

// Argument: 0 the noisy plain file, 1 the flat run-length file, 2 the noisy run-length file.
BENCHMARK(BM_TgaLoad_Ours)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TgaLoadReused_Ours)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TgaLoad_OIIO)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
// Argument: 1 the flat picture, 2 the noisy one.
BENCHMARK(BM_TgaSaveRle_Ours)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TgaSaveRle_OIIO)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

}  // namespace

KV_BENCH_RATIO("BM_TgaLoad_Ours/0", "BM_TgaLoad_OIIO/0");
KV_BENCH_RATIO("BM_TgaLoad_Ours/1", "BM_TgaLoad_OIIO/1");
KV_BENCH_RATIO("BM_TgaLoad_Ours/2", "BM_TgaLoad_OIIO/2");
KV_BENCH_RATIO("BM_TgaLoadReused_Ours/0", "BM_TgaLoad_OIIO/0");
KV_BENCH_RATIO("BM_TgaLoadReused_Ours/1", "BM_TgaLoad_OIIO/1");
KV_BENCH_RATIO("BM_TgaLoadReused_Ours/2", "BM_TgaLoad_OIIO/2");
KV_BENCH_RATIO("BM_TgaSaveRle_Ours/1", "BM_TgaSaveRle_OIIO/1");
KV_BENCH_RATIO("BM_TgaSaveRle_Ours/2", "BM_TgaSaveRle_OIIO/2");
KV_BENCH_MAIN()
