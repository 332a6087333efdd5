// The reference media service on OpenImageIO. Failures are silent, as the library's loaders
// are: OpenImageIO's error texts are collected and dropped so that none piles up.

#include "ole/platform/media/KvOIIOMediaServices.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>
#include <OpenImageIO/strutil.h>

#include "ole/platform/media/KvMemoryImage.h"
#include "ole/platform/os/OS.h"
#include "ole/platform/text/KvText.h"

namespace {

// A file larger than this in pixels is refused rather than read.
constexpr std::uint64_t maxPixels = std::uint64_t(1) << 28;

std::string utf8(const LightweightString<wchar_t>& path)
{
    const LightweightString<char> text = toUTF8(path);
    return std::string(text.c_str(), text.size());
}

LightweightString<wchar_t> wide(std::string_view text)
{
    return fromUTF8(LightweightString<char>(text.data(), unsigned(text.size())));
}

// Fills `out` (bytes blue, green, red, alpha) from `channels` 8-bit channels a pixel.
void toBGRA(const unsigned char* in, int channels, int alphaChannel, std::size_t pixels, unsigned char* out)
{
    for (std::size_t i = 0; i < pixels; ++i, in += channels, out += 4) {
        switch (channels) {
        case 1: out[0] = out[1] = out[2] = in[0]; out[3] = 255; break;
        case 2: out[0] = out[1] = out[2] = in[0]; out[3] = in[1]; break;
        case 3: out[0] = in[2]; out[1] = in[1]; out[2] = in[0]; out[3] = 255; break;
        default:
            out[0] = in[2]; out[1] = in[1]; out[2] = in[0];
            out[3] = alphaChannel >= 0 && alphaChannel < channels ? in[alphaChannel] : 255;
            break;
        }
    }
}

void listTypes(const char* formatListAttribute, iMediaServices::ImageTypeList& list)
{
    list.clear();
    const std::string formats(OIIO::get_string_attribute(formatListAttribute));
    const std::vector<std::string> wanted = OIIO::Strutil::splits(formats, ",");
    for (const auto& [format, extensions] : OIIO::get_extension_map()) {
        if (std::find(wanted.begin(), wanted.end(), format) == wanted.end()) continue;
        iMediaServices::ImageType type;
        for (const std::string& extension : extensions) type.extensions.push_back(wide(extension));
        type.description = wide(format);
        list.push_back(type);
    }
}

}  // namespace

Kv::Ptr<iHostImage> KvOIIOMediaServices::loadImage(const LightweightString<wchar_t>& path)
{
    try {
        // Host images keep colour and alpha apart; OpenImageIO would multiply them on reading.
        OIIO::ImageSpec config;
        config.attribute("oiio:UnassociatedAlpha", 1);
        auto input = OIIO::ImageInput::open(utf8(path), &config);
        if (!input) {
            OIIO::geterror();
            return {};
        }
        const OIIO::ImageSpec spec = input->spec();
        const int channels = spec.nchannels;
        if (spec.width <= 0 || spec.height <= 0 || channels <= 0 ||
            std::uint64_t(spec.width) * std::uint64_t(spec.height) > maxPixels) {
            return {};
        }
        const std::size_t pixels = std::size_t(spec.width) * std::size_t(spec.height);
        std::vector<unsigned char> data(pixels * std::size_t(channels));
        if (!input->read_image(0, 0, 0, channels, OIIO::TypeDesc::UINT8, data.data())) {
            input->geterror();
            return {};
        }
        input->close();
        Kv::Ptr<iHostImage> image = KvMemoryImage::create(XY<int>(spec.width, spec.height));
        if (!image) return {};
        Kv::Ptr<iPixelGuard> guard = image->lock();
        toBGRA(data.data(), channels, spec.alpha_channel, pixels, guard->getPixels());
        return image;
    } catch (const std::bad_alloc&) {
        return {};
    }
}

bool KvOIIOMediaServices::saveImage(const Kv::Ptr<iHostImage>& image, const LightweightString<wchar_t>& path)
{
    if (!image) return false;
    XY<int> size = image->getSize();
    const unsigned int bits = image->getBitsPerPixel();
    if (size.x <= 0 || size.y <= 0 || (bits != 24 && bits != 32 && bits != 64)) return false;
    const Kv::Ptr<iPixelGuard> guard = image->lock();
    if (!guard || !guard->getPixels()) return false;
    // A host's width may count 32-bit units rather than pixels (a library picture of 16-bit
    // components shows twice its width): the stride says how many pixels a line holds.
    const std::size_t stride = guard->getStride();
    size.x = int(std::min<std::size_t>(std::size_t(size.x), stride * 8 / bits));
    if (size.x <= 0) return false;

    try {
        const std::string name = utf8(path);
        auto output = OIIO::ImageOutput::create(name);
        if (!output) {
            OIIO::geterror();
            return false;
        }
        const int sourceChannels = bits == 24 ? 3 : 4;
        const int channels = sourceChannels == 4 && !output->supports("alpha") ? 3 : sourceChannels;
        const bool wide16 = bits == 64;
        OIIO::ImageSpec spec(size.x, size.y, channels, wide16 ? OIIO::TypeDesc::UINT16 : OIIO::TypeDesc::UINT8);
        if (channels == 4) spec.alpha_channel = 3;
        spec.attribute("oiio:UnassociatedAlpha", 1);  // the colour is not multiplied by alpha

        // Red first, as files have it.
        const std::size_t sampleBytes = wide16 ? 2 : 1;
        std::vector<unsigned char> data(std::size_t(size.x) * size.y * channels * sampleBytes);
        unsigned char* out = data.data();
        for (int y = 0; y < size.y; ++y) {
            const unsigned char* in = guard->getPixels() + std::size_t(y) * stride;
            for (int x = 0; x < size.x; ++x, in += sourceChannels * sampleBytes) {
                if (wide16) {
                    std::memcpy(out, in, std::size_t(channels) * 2);  // words red, green, blue, alpha
                    out += channels * 2;
                } else {
                    *out++ = in[2];
                    *out++ = in[1];
                    *out++ = in[0];
                    if (channels == 4) *out++ = in[3];
                }
            }
        }
        const bool ok = output->open(name, spec) &&
                        output->write_image(spec.format, data.data()) && output->close();
        if (!ok) output->geterror();
        return ok;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void KvOIIOMediaServices::getLoadableImageTypes(ImageTypeList& list)
{
    listTypes("input_format_list", list);
}

void KvOIIOMediaServices::getSavableImageTypes(ImageTypeList& list)
{
    listTypes("output_format_list", list);
}

Kv::Ptr<iHostImage> KvOIIOMediaServices::createImage(const XY<int>& size)
{
    return KvMemoryImage::create(size);
}

namespace {

constinit KvOIIOMediaServices theReferenceService;

// Installs the reference service when the platform loads, unless the host was first.
struct Installer {
    Installer()
    {
        if (!OS()->mediaServices()) OS()->setMediaServices(&theReferenceService);
    }
} installer;

}  // namespace

iMediaServices* Kv::Platform::referenceMediaServices() noexcept { return &theReferenceService; }
