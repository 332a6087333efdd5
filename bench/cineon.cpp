// Film scans at 2048x1556, 10 bits: a logarithmic DPX loaded into 8-bit ARGB beside
// OpenImageIO's read_image into 8 and 16 bits and ffmpeg's DPX decoder, and beside the floor of
// any reader (reading the file, then one pass over the pixels); a thumbnail at 256 beside
// OpenImageIO's full read and resize; a Cineon load beside OpenImageIO's; a DPX save beside
// OpenImageIO's write. OpenImageIO runs with one thread, as our readers do. The files sit in
// the page cache: the figures are those of the decoders, not of the disk.

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/imageio.h>

#include "bench/support/BenchRatio.h"
#include "ole/image/cineon.h"
#include "ole/platform/text/KvText.h"

using namespace Kv::Image;

namespace {

constexpr unsigned int kWidth = 2048;
constexpr unsigned int kHeight = 1556;

LightweightString<wchar_t> wide(const std::string& path) { return fromUTF8(path.c_str()); }

// A scan's worth of 10-bit codes: a slow ramp with grain, in the range a negative uses.
Surface scan()
{
    Surface s(kWidth, kHeight, Format(35), true, 10, 0, 0);
    std::mt19937 random(3);
    for (unsigned int y = 0; y < kHeight; ++y) {
        auto* line = reinterpret_cast<std::uint32_t*>(s.getRawLinePtr(y));
        for (unsigned int x = 0; x < kWidth; ++x) {
            const std::uint32_t base = 95 + (x + y) * 590 / (kWidth + kHeight);
            const std::uint32_t r = base + random() % 24, g = base + random() % 24, b = base + random() % 24;
            line[x] = r << 20 | g << 10 | b;
        }
    }
    return s;
}

std::vector<unsigned char> readFile(const std::string& path)
{
    std::vector<unsigned char> bytes(std::filesystem::file_size(path));
    std::FILE* file = std::fopen(path.c_str(), "rb");
    const std::size_t got = file ? std::fread(bytes.data(), 1, bytes.size(), file) : 0;
    if (file) std::fclose(file);
    bytes.resize(got);
    return bytes;
}

struct Files {
    Files()
    {
        OIIO::attribute("threads", 1);
        std::filesystem::create_directories(dir);
        // Our writer makes the DPX (linear, host order); the transfer byte then says logarithmic,
        // as a scanner's file would.
        saveDPXImage(picture, wide(dpx), nullptr, nullptr, MediumRollMedium(1), 0.0, 0);
        if (std::FILE* file = std::fopen(dpx.c_str(), "r+b")) {
            std::fseek(file, 801, SEEK_SET);
            std::fputc(3, file);
            std::fclose(file);
        }
        const std::string make = "/usr/bin/convert -size 2048x1556 gradient:'#182430'-'#d8c8b0' -depth 10 " + cin;
        if (std::system((make + " >/dev/null 2>&1").c_str()) != 0) std::fprintf(stderr, "bench: no Cineon file\n");
    }
    ~Files()
    {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }

    const std::string dir = (std::filesystem::temp_directory_path() / ("kvbench-cineon-" + std::to_string(getpid()))).string();
    const std::string dpx = dir + "/scan.dpx";
    const std::string cin = dir + "/scan.cin";
    const std::string ours = dir + "/ours.dpx";
    const std::string theirs = dir + "/theirs.dpx";
    const Surface picture = scan();
};

Files& files()
{
    static Files f;
    return f;
}

// What a viewer asks for: 8-bit ARGB at most this size.
Core::Data wanted(unsigned int width, unsigned int height) { return Core::Data(width, height, ARGB, 8, 32, true); }

void loadOurs(benchmark::State& state, const std::string& path, unsigned int size)
{
    for (auto _ : state) {
        Surface s = loadCineonImage(wide(path), wanted(size, size), nullptr);
        if (!s.getDataPtr()) return state.SkipWithError("load failed");
        benchmark::DoNotOptimize(s.getDataPtr());
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(std::filesystem::file_size(path)));
}

void readOIIO(benchmark::State& state, const std::string& path, OIIO::TypeDesc type)
{
    std::vector<unsigned char> pixels(std::size_t(kWidth) * kHeight * 3 * type.size());
    for (auto _ : state) {
        auto in = OIIO::ImageInput::open(path);
        if (!in || !in->read_image(0, 0, 0, 3, type, pixels.data())) return state.SkipWithError("OpenImageIO failed");
        benchmark::DoNotOptimize(pixels.data());
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(std::filesystem::file_size(path)));
}

void BM_DpxLoadToArgb8(benchmark::State& state) { loadOurs(state, files().dpx, 65535); }
BENCHMARK(BM_DpxLoadToArgb8)->Unit(benchmark::kMillisecond);

void BM_OiioDpxReadUint8(benchmark::State& state) { readOIIO(state, files().dpx, OIIO::TypeDesc::UINT8); }
BENCHMARK(BM_OiioDpxReadUint8)->Unit(benchmark::kMillisecond);

void BM_OiioDpxReadUint16(benchmark::State& state) { readOIIO(state, files().dpx, OIIO::TypeDesc::UINT16); }
BENCHMARK(BM_OiioDpxReadUint16)->Unit(benchmark::kMillisecond);

// ffmpeg's DPX decoder on the file's bytes, into its own 10-bit planar RGB.
void BM_FfmpegDpxDecode(benchmark::State& state)
{
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_DPX);
    AVCodecContext* context = codec ? avcodec_alloc_context3(codec) : nullptr;
    if (!context) return state.SkipWithError("no DPX decoder");
    context->thread_count = 1;
    if (avcodec_open2(context, codec, nullptr) < 0) return state.SkipWithError("decoder does not open");
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    for (auto _ : state) {
        std::vector<unsigned char> bytes = readFile(files().dpx);
        bytes.resize(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE);
        packet->data = bytes.data();
        packet->size = int(bytes.size() - AV_INPUT_BUFFER_PADDING_SIZE);
        if (avcodec_send_packet(context, packet) < 0 || avcodec_receive_frame(context, frame) < 0)
            return state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(frame->data[0]);
        av_frame_unref(frame);
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&context);
    state.SetBytesProcessed(state.iterations() * std::int64_t(std::filesystem::file_size(files().dpx)));
}
BENCHMARK(BM_FfmpegDpxDecode)->Unit(benchmark::kMillisecond);

// The floor of any reader: the file's bytes into memory, then one pass that makes an 8-bit
// pixel of each word (the top eight bits of each component, no table).
void BM_ReadFileAndOnePass(benchmark::State& state)
{
    std::vector<std::uint32_t> out(std::size_t(kWidth) * kHeight);
    for (auto _ : state) {
        const std::vector<unsigned char> bytes = readFile(files().dpx);
        const unsigned char* in = bytes.data() + 2048;
        for (std::size_t i = 0; i < out.size(); ++i) {
            std::uint32_t w;
            std::memcpy(&w, in + 4 * i, 4);
            out[i] = 0xFF000000u | (w >> 8 & 0xFF0000u) | (w >> 14 & 0xFF00u) | (w >> 24);
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(std::filesystem::file_size(files().dpx)));
}
BENCHMARK(BM_ReadFileAndOnePass)->Unit(benchmark::kMillisecond);

void BM_DpxThumbnail256(benchmark::State& state) { loadOurs(state, files().dpx, 256); }
BENCHMARK(BM_DpxThumbnail256)->Unit(benchmark::kMillisecond);

// What a user of OpenImageIO writes for a thumbnail: the whole picture, then a resize.
void BM_OiioDpxReadAndResize256(benchmark::State& state)
{
    for (auto _ : state) {
        OIIO::ImageBuf full(files().dpx);
        if (!full.read(0, 0, true, OIIO::TypeDesc::UINT8)) return state.SkipWithError("OpenImageIO failed");
        OIIO::ImageBuf small = OIIO::ImageBufAlgo::resize(full, "", 0.0f, OIIO::ROI(0, 256, 0, 194, 0, 1, 0, 3));
        benchmark::DoNotOptimize(small.localpixels());
    }
}
BENCHMARK(BM_OiioDpxReadAndResize256)->Unit(benchmark::kMillisecond);

void BM_CineonLoadToArgb8(benchmark::State& state) { loadOurs(state, files().cin, 65535); }
BENCHMARK(BM_CineonLoadToArgb8)->Unit(benchmark::kMillisecond);

void BM_OiioCineonReadUint8(benchmark::State& state) { readOIIO(state, files().cin, OIIO::TypeDesc::UINT8); }
BENCHMARK(BM_OiioCineonReadUint8)->Unit(benchmark::kMillisecond);

void BM_DpxSave(benchmark::State& state)
{
    for (auto _ : state)
        if (!saveDPXImage(files().picture, wide(files().ours), nullptr, nullptr, MediumRollMedium(1), 0.0, 0))
            return state.SkipWithError("save failed");
    state.SetBytesProcessed(state.iterations() * std::int64_t(files().picture.getImageSize()));
}
BENCHMARK(BM_DpxSave)->Unit(benchmark::kMillisecond);

// The same picture through OpenImageIO's writer, as 10-bit DPX from 16-bit samples.
void BM_OiioDpxWrite(benchmark::State& state)
{
    std::vector<std::uint16_t> samples(std::size_t(kWidth) * kHeight * 3);
    const auto* words = reinterpret_cast<const std::uint32_t*>(files().picture.getDataPtr());
    for (std::size_t i = 0; i < std::size_t(kWidth) * kHeight; ++i)
        for (int c = 0; c < 3; ++c) samples[i * 3 + c] = std::uint16_t((words[i] >> (20 - 10 * c) & 0x3FF) * 64);
    OIIO::ImageSpec spec(int(kWidth), int(kHeight), 3, OIIO::TypeDesc::UINT16);
    spec.attribute("oiio:BitsPerSample", 10);
    for (auto _ : state) {
        auto out = OIIO::ImageOutput::create(files().theirs);
        if (!out || !out->open(files().theirs, spec) || !out->write_image(OIIO::TypeDesc::UINT16, samples.data()))
            return state.SkipWithError("OpenImageIO failed");
        out->close();
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(files().picture.getImageSize()));
}
BENCHMARK(BM_OiioDpxWrite)->Unit(benchmark::kMillisecond);

KV_BENCH_RATIO("BM_DpxLoadToArgb8", "BM_OiioDpxReadUint8");
KV_BENCH_RATIO("BM_DpxLoadToArgb8", "BM_OiioDpxReadUint16");
KV_BENCH_RATIO("BM_DpxLoadToArgb8", "BM_FfmpegDpxDecode");
KV_BENCH_RATIO("BM_DpxLoadToArgb8", "BM_ReadFileAndOnePass");
KV_BENCH_RATIO("BM_DpxThumbnail256", "BM_OiioDpxReadAndResize256");
KV_BENCH_RATIO("BM_CineonLoadToArgb8", "BM_OiioCineonReadUint8");
KV_BENCH_RATIO("BM_DpxSave", "BM_OiioDpxWrite");

}  // namespace

KV_BENCH_MAIN();
