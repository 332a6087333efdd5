// GIF decoding of a 1920x1080 frame into 32-bit pixels, against giflib (DGifSlurp and the palette
// lookup a caller of it writes) and OpenImageIO. The pictures are made by ImageMagick when the
// benchmark starts: a photo-like one of 256 colours (argument 0), a flat one of a few (1), and
// the photo-like one interlaced (2).

#include <gif_lib.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>

#include "bench/support/BenchRatio.h"
#include "ole/image/Gif.h"

namespace {

// The test pictures, in a folder of their own that goes with the process.
class Pictures {
public:
    Pictures()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "kvbench-gif-XXXXXX").string();
        if (::mkdtemp(pattern.data())) folder_ = pattern;
        make("photo.gif", "-size 1920x1080 -seed 5 plasma:fractal -colors 256");
        make("photo-interlaced.gif", "-size 1920x1080 -seed 5 plasma:fractal -colors 256 -interlace GIF");
        make("flat.gif", "-size 1920x1080 xc:'#336699' -fill '#CC3300' -draw 'rectangle 300,200 1500,800' "
                         "-fill '#F0F0F0' -draw 'circle 960,540 960,300' -colors 4");
    }
    ~Pictures()
    {
        std::error_code ignored;
        if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
    }
    std::string path(const char* leaf) const { return (folder_ / leaf).string(); }

private:
    void make(const char* leaf, const std::string& options) const
    {
        const std::string command = "/usr/bin/convert " + options + " " + path(leaf) + " >/dev/null 2>&1";
        if (std::system(command.c_str()) != 0) std::fprintf(stderr, "could not make %s\n", leaf);
    }

    std::filesystem::path folder_;
};

const Pictures& pictures()
{
    static const Pictures made;
    return made;
}

const char* leafOf(const benchmark::State& state)
{
    static const char* const leaves[] = {"photo.gif", "flat.gif", "photo-interlaced.gif"};
    return leaves[state.range(0)];
}

void BM_KvGif(benchmark::State& state)
{
    const std::string path = pictures().path(leafOf(state));
    for (auto _ : state) {
        Gif gif(path.c_str(), 0);
        Kv::Image::Surface image = gif.getImage(0);
        if (!image.valid()) state.SkipWithError("no picture");
        benchmark::DoNotOptimize(image.getDataPtr());
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * 1920 * 1080);
}
BENCHMARK(BM_KvGif)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

// What a caller of giflib writes: slurp the file, then look the first frame's indices up in its
// palette, with alpha 0 for the transparent index.
void BM_Giflib(benchmark::State& state)
{
    const std::string path = pictures().path(leafOf(state));
    for (auto _ : state) {
        int error = 0;
        GifFileType* gif = DGifOpenFileName(path.c_str(), &error);
        if (!gif || DGifSlurp(gif) != GIF_OK || gif->ImageCount < 1) {
            state.SkipWithError("giflib failed");
            if (gif) DGifCloseFile(gif, &error);
            break;
        }
        const SavedImage& frame = gif->SavedImages[0];
        const ColorMapObject* map = frame.ImageDesc.ColorMap ? frame.ImageDesc.ColorMap : gif->SColorMap;
        GraphicsControlBlock control{};
        control.TransparentColor = NO_TRANSPARENT_COLOR;
        DGifSavedExtensionToGCB(gif, 0, &control);
        std::uint32_t words[256] = {};
        for (int i = 0; map && i < map->ColorCount && i < 256; ++i) {
            const GifColorType& c = map->Colors[i];
            words[i] = 0xFF000000u | std::uint32_t(c.Red) << 16 | std::uint32_t(c.Green) << 8 | c.Blue;
        }
        if (control.TransparentColor >= 0 && control.TransparentColor < 256) words[control.TransparentColor] &= 0x00FFFFFFu;
        const std::size_t count = std::size_t(frame.ImageDesc.Width) * frame.ImageDesc.Height;
        std::unique_ptr<std::uint32_t[]> out(new std::uint32_t[count]);
        for (std::size_t i = 0; i < count; ++i) out[i] = words[frame.RasterBits[i]];
        benchmark::DoNotOptimize(out.get());
        DGifCloseFile(gif, &error);
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * 1920 * 1080);
}
BENCHMARK(BM_Giflib)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void BM_OpenImageIO(benchmark::State& state)
{
    const std::string path = pictures().path(leafOf(state));
    std::vector<unsigned char> pixels;
    for (auto _ : state) {
        auto in = OIIO::ImageInput::open(path);
        if (!in) {
            state.SkipWithError("OpenImageIO failed");
            break;
        }
        const OIIO::ImageSpec& spec = in->spec();
        pixels.resize(std::size_t(spec.width) * spec.height * spec.nchannels);
        in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::UINT8, pixels.data());
        benchmark::DoNotOptimize(pixels.data());
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * 1920 * 1080);
}
BENCHMARK(BM_OpenImageIO)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

}  // namespace

KV_BENCH_RATIO("BM_KvGif/0", "BM_Giflib/0");
KV_BENCH_RATIO("BM_KvGif/1", "BM_Giflib/1");
KV_BENCH_RATIO("BM_KvGif/2", "BM_Giflib/2");
KV_BENCH_RATIO("BM_KvGif/0", "BM_OpenImageIO/0");
KV_BENCH_RATIO("BM_KvGif/1", "BM_OpenImageIO/1");
KV_BENCH_RATIO("BM_KvGif/2", "BM_OpenImageIO/2");
KV_BENCH_MAIN()
