// Frame rates of the label library.

#include "ole/platform/labels/KvFrameRate.h"

#include <cmath>

namespace Kv {
namespace {

constexpr FrameRateRatio ratios[] = {
    {0, 1},                                    // unknown
    {24, 1},     {24000, 1001},                // film
    {25, 1},                                   // 625/50
    {30, 1},     {30000, 1001},                // 525/60
    {48, 1},     {48000, 1001},                // high-rate film
    {50, 1},                                   // 625/50 at frame rate
    {60000, 1001}, {60, 1},                    // 525/60 at field rate
};
static_assert(sizeof(ratios) / sizeof(ratios[0]) == eFrameRateLast + 1);

}  // namespace

bool isKnownFrameRate(std::int32_t rate) noexcept
{
    return rate > eFrameRateUnknown && rate <= eFrameRateLast;
}

FrameRateRatio getFrameRateRatio(FrameRate rate) noexcept
{
    return isKnownFrameRate(rate) ? ratios[rate] : ratios[0];
}

double getFramesPerSecond(FrameRate rate) noexcept
{
    const FrameRateRatio r = getFrameRateRatio(rate);
    return double(r.numerator) / double(r.denominator);
}

double getFrameDuration(FrameRate rate) noexcept
{
    const FrameRateRatio r = getFrameRateRatio(rate);
    return r.numerator ? double(r.denominator) / double(r.numerator) : 0.0;
}

FrameRate getEquivalentKvFrameRate(double fps) noexcept
{
    if (!(fps > 0.0) || !std::isfinite(fps)) return eFrameRateUnknown;
    FrameRate best = eFrameRateUnknown;
    double bestError = 0.01;
    for (std::int32_t i = 1; i <= eFrameRateLast; ++i) {
        const double rate = getFramesPerSecond(FrameRate(i));
        const double error = std::fabs(fps - rate) / rate;
        if (error <= bestError) {
            bestError = error;
            best = FrameRate(i);
        }
    }
    return best;
}

}  // namespace Kv
