#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ole/image/KvImageWrapper.h"
#include "ole/platform/media/KvMediaServices.h"
#include "tests/support/CountingMemory.h"

using namespace Kv::Image;

namespace {

// A host picture in main memory, as the host's graphics layer would hand one out.
class MemoryHostImage final : public iHostImage {
public:
    MemoryHostImage(int w, int h) : pixels(std::size_t(w) * h * 4, 0) { size_ = XY<int>(w, h); }
    XY<int> getSize() const override { return size_; }
    unsigned int getBitsPerPixel() const override { return 32; }
    Kv::Ptr<iPixelGuard> lock() override
    {
        ++locks;
        struct Lock final : iPixelGuard {
            Lock(MemoryHostImage* image_) : image(image_) { ++image->openLocks; }
            ~Lock() override { --image->openLocks; }
            const unsigned char* getPixels() const override { return image->pixels.data(); }
            unsigned char* getPixels() override { return image->pixels.data(); }
            unsigned int getStride() const override { return unsigned(image->size_.x) * 4; }
            XY<int> getSize() const override { return image->size_; }
            MemoryHostImage* image;
        };
        return Kv::Ptr<iPixelGuard>(new Lock(this));
    }
    Kv::Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(bool) override { return {}; }
    Kv::Ptr<iImage> createCompatibleImage(const XY<int>&) override { return {}; }

    std::vector<unsigned char> pixels;
    int locks = 0;
    int openLocks = 0;
};

class GpuImage final : public iGPUImage {
public:
    XY<int> getSize() const override { return XY<int>(16, 9); }
    unsigned int getBitsPerPixel() const override { return 32; }
    Kv::Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(bool) override { return {}; }
    Kv::Ptr<iImage> createCompatibleImage(const XY<int>&) override { return {}; }
};

}  // namespace

TEST(KvImageWrapper, ShowsASurfaceToTheHost)
{
    Surface argb(10, 5, ARGB, true, 0, 0, 40);
    Kv::Ptr<KvImageWrapper> wrapper(new KvImageWrapper(argb));
    EXPECT_TRUE(wrapper->getSize() == XY<int>(10, 5) && wrapper->getBitsPerPixel() == 32 && wrapper->getLocation() == 0);
    EXPECT_FALSE(wrapper->isAlphaPreMultiplied() || wrapper->getPrimitivesRenderer(true));
    Kv::Ptr<iPixelGuard> guard = wrapper->lock();
    EXPECT_TRUE(guard->getPixels() == argb.getDataPtr() && guard->getStride() == 40);

    // The width the host sees is the stride's, in the format's bits a pixel; NV12 counts six
    // bits to the byte, format 35 keeps its own width.
    Surface padded(10, 5, ARGB, true, 0, 0, 48), uyvy(10, 5, UYVY, true, 8, 0, 0), nv12(8, 4, NV12, true, 0, 0, 0);
    EXPECT_EQ(KvImageWrapper(padded).getSize(), XY<int>(12, 5));
    EXPECT_EQ(KvImageWrapper(uyvy).getSize(), XY<int>(10, 5));
    EXPECT_EQ(KvImageWrapper(nv12).getSize().x, 6);
    EXPECT_EQ(KvImageWrapper(Surface(7, 2, Format(35), true, 10, 0, 0)).getSize().x, 7);
}

TEST(KvImageWrapper, HostImageBecomesASurfaceHoldingItsGuard)
{
    Kv::Ptr<MemoryHostImage> host(new MemoryHostImage(6, 3));
    host->pixels[4 * 7] = 0xAB;
    {
        Surface s = makeWrapper(Kv::Ptr<iHostImage>(host));
        ASSERT_TRUE(s.valid() && s.getDataFormat() == ARGB && s.getWidth() == 6 && s.getStride() == 24);
        EXPECT_TRUE(s.getDataPtr() == host->pixels.data() && s.getMemHolder()->getSize() == 72);
        EXPECT_EQ(host->openLocks, 1);
        Surface copy = s;
        s.free();
        EXPECT_EQ(host->openLocks, 1);  // the guard lives as long as any handle of the rep
    }
    EXPECT_EQ(host->openLocks, 0);

    Kv::Ptr<MemoryHostImage> empty(new MemoryHostImage(0, 4));
    EXPECT_FALSE(makeWrapper(Kv::Ptr<iHostImage>(empty)).valid());
    EXPECT_EQ(empty->locks, 0);
    EXPECT_FALSE(makeWrapper(Kv::Ptr<iHostImage>()).valid());

    // Through the general form, by location.
    EXPECT_TRUE(makeWrapper(Kv::Ptr<iImage>(host)).valid());
    Surface gpu = makeWrapper(Kv::Ptr<iImage>(new GpuImage));
    EXPECT_TRUE(gpu.valid() && !gpu.getDataPtr());
    EXPECT_TRUE(gpu.getStride() == 64 && gpu.getMemHolder()->getSize() == 64 * 9);
    EXPECT_EQ(gpu.getTransparency(), Unknown);  // no pixels in main memory to scan
}

TEST(KvImageWrapper, SubImagesAreViewsThatOutliveTheirSource)
{
    CountingMemory memory;
    {
        Surface view;
        unsigned char* sourceBytes = nullptr;
        {
            Surface source(8, 6, ARGB, true, 0, 0, 0);
            sourceBytes = source.getDataPtr();
            for (unsigned int i = 0; i < source.getImageSize(); ++i) sourceBytes[i] = static_cast<unsigned char>(i);
            Surface whole = makeSubImageWrapper({source, TopDownRect(0, 0, 8, 6)});
            EXPECT_EQ(whole.getDataPtr(), sourceBytes);
            EXPECT_FALSE(makeSubImageWrapper({source, TopDownRect(0, 0, 9, 6)}).valid());
            EXPECT_FALSE(makeSubImageWrapper({source, TopDownRect(-1, 0, 2, 2)}).valid());
            view = makeSubImageWrapper({source, TopDownRect(2, 1, 5, 4)});
        }
        // Only the view holds the source now; reading it under AddressSanitizer proves the
        // bytes are still alive.
        ASSERT_TRUE(view.valid() && view.getWidth() == 3 && view.getHeight() == 3 && view.getStride() == 32);
        EXPECT_EQ(view.getDataPtr(), sourceBytes + 32 + 8);
        EXPECT_EQ(view.getDataPtr()[0], 40);
        EXPECT_EQ(view.getRawLinePtr(2)[4], 40 + 64 + 4);
        EXPECT_EQ(view.findNonTransparentArea(), TopDownRect(0, 0, 3, 3));
    }
    EXPECT_EQ(memory.outstanding(), 0);
}

TEST(TopDownRect, Algebra)
{
    const TopDownRect a(2, 2, 4, 4), b(4, 4, 6, 6), inside(3, 3, 4, 4), apart(10, 10, 12, 12);
    const TopDownRect touch = TopDownRect::getIntersection(a, b);
    EXPECT_EQ(touch, TopDownRect(4, 4, 4, 4));
    EXPECT_TRUE(touch.isEmpty());
    EXPECT_EQ(TopDownRect::getIntersection(a, inside), inside);
    EXPECT_EQ(TopDownRect::getIntersection(a, apart), TopDownRect());
    EXPECT_EQ(TopDownRect::getUnion(TopDownRect(), a), TopDownRect(0, 0, 4, 4));
    EXPECT_EQ(TopDownRect::getUnion(a, apart), TopDownRect(2, 2, 12, 12));
    EXPECT_FALSE(a.isEmpty());
    EXPECT_TRUE(TopDownRect(3, 1, 3, 5).isEmpty());
    TopDownRect flipped(3, 5, 1, 2);
    flipped.validate();
    EXPECT_EQ(flipped, TopDownRect(1, 2, 3, 5));
}

namespace {

// A media service that keeps what it is asked to save.
class RecordingMedia final : public iMediaServices {
public:
    RecordingMedia() : previous_(OS()->setMediaServices(this)) {}
    ~RecordingMedia() { OS()->setMediaServices(previous_); }
    Kv::Ptr<iHostImage> loadImage(const LightweightString<wchar_t>&) override { return {}; }
    bool saveImage(const Kv::Ptr<iHostImage>& image, const LightweightString<wchar_t>& path) override
    {
        saved.push_back({image, path});
        return true;
    }
    void getLoadableImageTypes(ImageTypeList&) override {}
    void getSavableImageTypes(ImageTypeList&) override {}
    Kv::Ptr<iHostImage> createImage(const XY<int>&) override { return {}; }

    std::vector<std::pair<Kv::Ptr<iHostImage>, LightweightString<wchar_t>>> saved;

private:
    iMediaServices* previous_;
};

}  // namespace

TEST(KvImageWrapper, DebugSavesGoToTheHostWithCountedNames)
{
    Surface s(4, 4, ARGB, true, 0, 0, 0);
    RecordingMedia media;
    OS()->setMediaServices(nullptr);
    DbgSaveSurface(s);  // no media service: nothing happens
    OS()->setMediaServices(&media);
    DbgSaveSurface(s);
    DbgSaveSurface(s);
    ASSERT_EQ(media.saved.size(), 2u);
    const std::wstring first = media.saved[0].second.c_str(), second = media.saved[1].second.c_str();
    EXPECT_EQ(first.rfind(L"c:\\temp\\dbg\\frame", 0), 0u);
    EXPECT_NE(first, second);
    EXPECT_EQ(media.saved[1].first->getSize(), XY<int>(4, 4));
}
