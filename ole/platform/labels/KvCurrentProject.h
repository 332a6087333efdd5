#pragma once
// The project that the editor has open, as far as the picture library asks about it.

#include <cstdint>

#include "ole/platform/labels/KvFrameRate.h"
#include "ole/platform/os/KvPlatformExport.h"

namespace Kv {

class KV_EXPORT CurrentProject {
public:
    // Which state of the project is asked about; callers ask about the present one.
    enum Revision : std::int32_t {
        eCurrentRevision = 0,
    };

    // The project's frame rate: the one set by setFrameRate, else the setting
    // "project_frame_rate" (a Kv::FrameRate number, default 3, 25 fps). A setting that is not a
    // known rate gives 3. The setting is read on each call, so a changed environment is seen.
    static FrameRate getFrameRate(Revision revision) noexcept;

    // Replaces the setting for the rest of the run (a host that opens a project, a test). An
    // unknown rate is refused and returns false.
    static bool setFrameRate(FrameRate rate) noexcept;

    // Goes back to the setting.
    static void resetFrameRate() noexcept;

    // getOutputImageFormat(Revision), the project's picture settings, joins these later.
};

}  // namespace Kv
