#pragma once
// Frame rates of the label library, as a 32-bit enumeration.
//
// The numbers are chosen so that the rates sort into their families of standard-definition
// video: 1 and 2 are the film rates (24 itself first, then the 23.976 of film carried on 525-line
// video), 3 and 8 the 625/50 family, 4, 5, 9 and 10 the 525/60 family, and 6 and 7 the high-rate
// film pair, which has no standard-definition raster.
//
// 3 is the picture rate of 625/50 video (25 fps) and 5 that of 525/60 video (30000/1001 fps).
// 4 is 30 frames a second exactly: the nominal rate that NTSC timecode counts in. A project at
// this rate labels its video with 30-frame timecode and keeps a source's drop-frame counting;
// drop-frame only renumbers frames, it never changes how long a frame lasts, so a frame at 4
// lasts 1/30 s and one at 5 lasts 1001/30000 s.

#include <cstdint>

#include "ole/platform/os/KvPlatformExport.h"

namespace Kv {

enum FrameRate : std::int32_t {
    eFrameRateUnknown = 0,
    eFrameRate24 = 1,
    eFrameRate23_976 = 2,  // 24000/1001
    eFrameRate25 = 3,
    eFrameRate30 = 4,
    eFrameRate29_97 = 5,  // 30000/1001
    eFrameRate48 = 6,
    eFrameRate47_952 = 7,  // 48000/1001
    eFrameRate50 = 8,
    eFrameRate59_94 = 9,  // 60000/1001
    eFrameRate60 = 10,
    eFrameRateLast = eFrameRate60,
};

// Frames a second as an exact fraction; 0/1 for an unknown rate.
struct FrameRateRatio {
    std::int32_t numerator;
    std::int32_t denominator;
};

// True for 1 to eFrameRateLast.
KV_EXPORT bool isKnownFrameRate(std::int32_t rate) noexcept;

KV_EXPORT FrameRateRatio getFrameRateRatio(FrameRate rate) noexcept;

// Frames a second, as a double (30000/1001 for eFrameRate29_97); 0.0 for an unknown rate.
KV_EXPORT double getFramesPerSecond(FrameRate rate) noexcept;

// Seconds a frame lasts, the exact fraction rounded once (1001/30000 for eFrameRate29_97); 0.0
// for an unknown rate, which has no duration.
KV_EXPORT double getFrameDuration(FrameRate rate) noexcept;

// The known rate nearest to `fps`, if it lies within 1% of it, else eFrameRateUnknown. The
// tolerance takes the rounded rates that files store (23.98, 29.97, 59.94, a float's 29.969999)
// while the 0.1% between a rate and its 1000/1001 partner is still settled by nearness. Zero,
// negative, infinite and not-a-number rates give eFrameRateUnknown.
KV_EXPORT FrameRate getEquivalentKvFrameRate(double fps) noexcept;

}  // namespace Kv
