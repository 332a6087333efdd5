#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ole/image/KvImageDescriptors.h"

using namespace Kv::Image;

namespace {

// Another implementation of the core group, recording the order of the calls it receives.
class RecordingCore final : public Core::Interface {
public:
    unsigned int getWidth() const override { return 0; }
    unsigned int getHeight() const override { return 0; }
    void setWidth(unsigned int v) override { calls.push_back("width " + std::to_string(v)); }
    void setHeight(unsigned int v) override { calls.push_back("height " + std::to_string(v)); }
    Format getDataFormat() const override { return InvalidFormat; }
    void setDataFormat(Format f) override { calls.push_back("format " + std::to_string(f)); }
    unsigned short getBitsPerComponent() const override { return 0; }
    void setBitsPerComponent(unsigned short v) override { calls.push_back("bpc " + std::to_string(v)); }
    unsigned short getBitsPerPixel() const override { return 0; }
    void setBitsPerPixel(unsigned short v) override { calls.push_back("bpp " + std::to_string(v)); }
    bool getCoreDataSet() const override { return false; }
    void setCoreDataSet(bool v) override { calls.push_back(std::string("set ") + (v ? "1" : "0")); }
    std::vector<std::string> calls;
};

}  // namespace

TEST(KvImageDescriptors, AssignmentGoesThroughTheSettersFlagLast)
{
    const Core::Data request(1920, 1080, ARGB, 8, 32, true);
    RecordingCore recorder;
    static_cast<Core::Interface&>(recorder) = request;
    EXPECT_EQ(recorder.calls, (std::vector<std::string>{"width 1920", "height 1080",
                                                        "format " + std::to_string(int(ARGB)),
                                                        "bpc 8", "bpp 32", "set 1"}));

    // Between different groups' data the flag travels as it was: down, though setters ran.
    VideoSample::Data sample, other;
    sample.setColorimetry(C709);
    sample.setIsVideoGamutScaled(true);
    static_cast<VideoSample::Interface&>(other) = sample;
    EXPECT_TRUE(other.getColorimetry() == C709 && other.getIsVideoGamutScaled());
    EXPECT_FALSE(other.getVideoSampleDataSet());

    // A copy constructed from a group is a new object with no owners of its own.
    Core::Data copy(request);
    EXPECT_TRUE(copy.getWidth() == 1920 && copy.getCoreDataSet());
    EXPECT_EQ(copy.refCount(), 0);
}

TEST(KvImageDescriptors, FlagsStartDownAndSettersLeaveThem)
{
    Core::Data core;
    BufferFormat::Data buffer;
    Video::Data video;
    VideoSample::Data sample;
    VideoSequence::Data sequence;
    EXPECT_EQ(core.getDataFormat(), InvalidFormat);
    core.setWidth(10);
    buffer.setStride(40);
    video.setScanMode(Progressive);
    sample.setPolarity(FirstField);
    sequence.setFrameRate(Kv::eFrameRate25);
    EXPECT_FALSE(core.getCoreDataSet() || buffer.getBufferFormatDataSet() || video.getVideoDataSet() ||
                 sample.getVideoSampleDataSet() || sequence.getVideoSequenceDataSet());
}
