#pragma once
// Frame rates of the label library, as a 32-bit enumeration. 3 is the 625/50 picture rate and
// 5 the 525/60 one.

#include <cstdint>

namespace Kv {

enum FrameRate : std::int32_t {
    eFrameRateUnknown = 0,
    eFrameRate23_976 = 1,
    eFrameRate24 = 2,
    eFrameRate25 = 3,
    eFrameRate29_97 = 4,
    eFrameRate30 = 5,
    eFrameRate50 = 6,
    eFrameRate59_94 = 7,
    eFrameRate60 = 8,
};

}  // namespace Kv
