#pragma once
// The five descriptor groups of a picture. Each is an abstract Interface of getters and
// setters and a plain Data that stores the values; a group's flag says whether its other
// fields mean anything, and only whoever fills the group raises it. Assigning one Interface
// to another copies member by member through the virtual operations, the flag last, so that
// it works between any two implementations.

#include "ole/Kv/KvRefCount.h"
#include "ole/image/KvImageDefs.h"
#include "ole/platform/labels/KvFrameRate.h"

namespace Kv::Image {

namespace Core {

class Interface : public virtual iObject {
public:
    Interface() = default;
    Interface(const Interface&) = default;
    ~Interface() override = default;

    virtual unsigned int getWidth() const = 0;
    virtual unsigned int getHeight() const = 0;
    virtual void setWidth(unsigned int width) = 0;
    virtual void setHeight(unsigned int height) = 0;
    virtual Format getDataFormat() const = 0;
    virtual void setDataFormat(Format format) = 0;
    virtual unsigned short getBitsPerComponent() const = 0;
    virtual void setBitsPerComponent(unsigned short bits) = 0;
    virtual unsigned short getBitsPerPixel() const = 0;
    virtual void setBitsPerPixel(unsigned short bits) = 0;
    virtual bool getCoreDataSet() const = 0;
    virtual void setCoreDataSet(bool set) = 0;

    Interface& operator=(const Interface& other)
    {
        setWidth(other.getWidth());
        setHeight(other.getHeight());
        setDataFormat(other.getDataFormat());
        setBitsPerComponent(other.getBitsPerComponent());
        setBitsPerPixel(other.getBitsPerPixel());
        setCoreDataSet(other.getCoreDataSet());
        return *this;
    }
};

// The picture's shape. A bare Data with its flag down, handed to a loader, asks for the
// file's own layout.
class Data : public Interface {
public:
    Data() noexcept
        : width(0), height(0), dataFormat(InvalidFormat), bitsPerComponent(0), bitsPerPixel(0),
          coreDataSet(false)
    {
    }
    Data(const Data&) = default;
    Data(unsigned int width_, unsigned int height_, Format format, unsigned short bitsPerComponent_,
         unsigned short bitsPerPixel_, bool coreDataSet_) noexcept
        : width(width_), height(height_), dataFormat(format), bitsPerComponent(bitsPerComponent_),
          bitsPerPixel(bitsPerPixel_), coreDataSet(coreDataSet_)
    {
    }
    Data& operator=(const Data&) = default;

    unsigned int getWidth() const override { return width; }
    unsigned int getHeight() const override { return height; }
    void setWidth(unsigned int value) override { width = value; }
    void setHeight(unsigned int value) override { height = value; }
    Format getDataFormat() const override { return dataFormat; }
    void setDataFormat(Format value) override { dataFormat = value; }
    unsigned short getBitsPerComponent() const override { return bitsPerComponent; }
    void setBitsPerComponent(unsigned short value) override { bitsPerComponent = value; }
    unsigned short getBitsPerPixel() const override { return bitsPerPixel; }
    void setBitsPerPixel(unsigned short value) override { bitsPerPixel = value; }
    bool getCoreDataSet() const override { return coreDataSet; }
    void setCoreDataSet(bool value) override { coreDataSet = value; }

    unsigned int width;
    unsigned int height;
    Format dataFormat;
    unsigned short bitsPerComponent;
    unsigned short bitsPerPixel;
    bool coreDataSet;
};

}  // namespace Core

namespace BufferFormat {

class Interface : public virtual iObject {
public:
    Interface() = default;
    Interface(const Interface&) = default;
    ~Interface() override = default;

    virtual bool getIsTopDown() const = 0;
    virtual void setIsTopDown(bool topDown) = 0;
    virtual unsigned int getStride() const = 0;
    virtual void setStride(unsigned int stride) = 0;
    virtual unsigned short getStrideMultiplier() const = 0;
    virtual void setStrideMultiplier(unsigned short multiplier) = 0;
    virtual bool getBufferFormatDataSet() const = 0;
    virtual void setBufferFormatDataSet(bool set) = 0;

    Interface& operator=(const Interface& other)
    {
        setIsTopDown(other.getIsTopDown());
        setStride(other.getStride());
        setStrideMultiplier(other.getStrideMultiplier());
        setBufferFormatDataSet(other.getBufferFormatDataSet());
        return *this;
    }
};

// How the lines lie in memory. The stride multiplier travels with the stride; nothing here
// multiplies by it.
class Data : public Interface {
public:
    Data() noexcept : isTopDown(false), stride(0), strideMultiplier(1), bufferFormatDataSet(false) {}
    Data(const Data&) = default;
    Data& operator=(const Data&) = default;

    bool getIsTopDown() const override { return isTopDown; }
    void setIsTopDown(bool value) override { isTopDown = value; }
    unsigned int getStride() const override { return stride; }
    void setStride(unsigned int value) override { stride = value; }
    unsigned short getStrideMultiplier() const override { return strideMultiplier; }
    void setStrideMultiplier(unsigned short value) override { strideMultiplier = value; }
    bool getBufferFormatDataSet() const override { return bufferFormatDataSet; }
    void setBufferFormatDataSet(bool value) override { bufferFormatDataSet = value; }

    bool isTopDown;
    unsigned int stride;
    unsigned short strideMultiplier;
    bool bufferFormatDataSet;
};

}  // namespace BufferFormat

namespace Video {

class Interface : public virtual iObject {
public:
    Interface() = default;
    Interface(const Interface&) = default;
    ~Interface() override = default;

    virtual ScanMode getScanMode() const = 0;
    virtual void setScanMode(ScanMode mode) = 0;
    virtual AspectRatio getAspectRatio() const = 0;
    virtual void setAspectRatio(AspectRatio ratio) = 0;
    virtual unsigned int getVideoFormatUID() const = 0;
    virtual void setVideoFormatUID(unsigned int uid) = 0;
    virtual bool getVideoDataSet() const = 0;
    virtual void setVideoDataSet(bool set) = 0;

    Interface& operator=(const Interface& other)
    {
        setScanMode(other.getScanMode());
        setAspectRatio(other.getAspectRatio());
        setVideoFormatUID(other.getVideoFormatUID());
        setVideoDataSet(other.getVideoDataSet());
        return *this;
    }
};

class Data : public Interface {
public:
    Data() noexcept
        : scanMode(InvalidScanMode), aspectRatio(InvalidAspectRatio), videoFormatUID(0),
          videoDataSet(false)
    {
    }
    Data(const Data&) = default;
    Data& operator=(const Data&) = default;

    ScanMode getScanMode() const override { return scanMode; }
    void setScanMode(ScanMode value) override { scanMode = value; }
    AspectRatio getAspectRatio() const override { return aspectRatio; }
    void setAspectRatio(AspectRatio value) override { aspectRatio = value; }
    unsigned int getVideoFormatUID() const override { return videoFormatUID; }
    void setVideoFormatUID(unsigned int value) override { videoFormatUID = value; }
    bool getVideoDataSet() const override { return videoDataSet; }
    void setVideoDataSet(bool value) override { videoDataSet = value; }

    ScanMode scanMode;
    AspectRatio aspectRatio;
    unsigned int videoFormatUID;
    bool videoDataSet;
};

}  // namespace Video

namespace VideoSample {

class Interface : public virtual iObject {
public:
    Interface() = default;
    Interface(const Interface&) = default;
    ~Interface() override = default;

    virtual Polarity getPolarity() const = 0;
    virtual void setPolarity(Polarity polarity) = 0;
    virtual Colorimetry getColorimetry() const = 0;
    virtual void setColorimetry(Colorimetry colorimetry) = 0;
    virtual bool getIsVideoGamutScaled() const = 0;
    virtual void setIsVideoGamutScaled(bool scaled) = 0;
    virtual bool getVideoSampleDataSet() const = 0;
    virtual void setVideoSampleDataSet(bool set) = 0;

    Interface& operator=(const Interface& other)
    {
        setPolarity(other.getPolarity());
        setColorimetry(other.getColorimetry());
        setIsVideoGamutScaled(other.getIsVideoGamutScaled());
        setVideoSampleDataSet(other.getVideoSampleDataSet());
        return *this;
    }
};

class Data : public Interface {
public:
    Data() noexcept
        : polarity(InvalidPolarity), colorimetry(InvalidColorimetry), isVideoGamutScaled(false),
          videoSampleDataSet(false)
    {
    }
    Data(const Data&) = default;
    Data& operator=(const Data&) = default;

    Polarity getPolarity() const override { return polarity; }
    void setPolarity(Polarity value) override { polarity = value; }
    Colorimetry getColorimetry() const override { return colorimetry; }
    void setColorimetry(Colorimetry value) override { colorimetry = value; }
    bool getIsVideoGamutScaled() const override { return isVideoGamutScaled; }
    void setIsVideoGamutScaled(bool value) override { isVideoGamutScaled = value; }
    bool getVideoSampleDataSet() const override { return videoSampleDataSet; }
    void setVideoSampleDataSet(bool value) override { videoSampleDataSet = value; }

    Polarity polarity;
    Colorimetry colorimetry;
    bool isVideoGamutScaled;
    bool videoSampleDataSet;
};

}  // namespace VideoSample

namespace VideoSequence {

class Interface : public virtual iObject {
public:
    Interface() = default;
    Interface(const Interface&) = default;
    ~Interface() override = default;

    virtual Kv::FrameRate getFrameRate() const = 0;
    virtual void setFrameRate(Kv::FrameRate rate) = 0;
    virtual bool getVideoSequenceDataSet() const = 0;
    virtual void setVideoSequenceDataSet(bool set) = 0;

    Interface& operator=(const Interface& other)
    {
        setFrameRate(other.getFrameRate());
        setVideoSequenceDataSet(other.getVideoSequenceDataSet());
        return *this;
    }
};

class Data : public Interface {
public:
    Data() noexcept : frameRate(Kv::eFrameRateUnknown), videoSequenceDataSet(false) {}
    Data(const Data&) = default;
    Data& operator=(const Data&) = default;

    Kv::FrameRate getFrameRate() const override { return frameRate; }
    void setFrameRate(Kv::FrameRate value) override { frameRate = value; }
    bool getVideoSequenceDataSet() const override { return videoSequenceDataSet; }
    void setVideoSequenceDataSet(bool value) override { videoSequenceDataSet = value; }

    Kv::FrameRate frameRate;
    bool videoSequenceDataSet;
};

}  // namespace VideoSequence

}  // namespace Kv::Image
