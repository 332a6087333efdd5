// The current project's frame rate: a setting, or what a host put in its place.

#include "ole/platform/labels/KvCurrentProject.h"

#include <atomic>

#include "ole/platform/settings/KvSettings.h"

namespace Kv {
namespace {

// eFrameRateUnknown while the setting rules.
constinit std::atomic<std::int32_t> replacedRate{eFrameRateUnknown};

}  // namespace

FrameRate CurrentProject::getFrameRate(Revision) noexcept
{
    const std::int32_t replaced = replacedRate.load(std::memory_order_acquire);
    if (replaced != eFrameRateUnknown) return FrameRate(replaced);
    int setting = eFrameRate25;
    try {
        setting = config_int("project_frame_rate", eFrameRate25);
    } catch (...) {
        // A setting that cannot even be read (no memory for its text) leaves the default.
    }
    return isKnownFrameRate(setting) ? FrameRate(setting) : eFrameRate25;
}

bool CurrentProject::setFrameRate(FrameRate rate) noexcept
{
    if (!isKnownFrameRate(rate)) return false;
    replacedRate.store(rate, std::memory_order_release);
    return true;
}

void CurrentProject::resetFrameRate() noexcept
{
    replacedRate.store(eFrameRateUnknown, std::memory_order_release);
}

}  // namespace Kv
