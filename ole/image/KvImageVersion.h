#pragma once
// The version of the picture library, as the editor's module list shows it.

#include "ole/platform/os/KvPlatformExport.h"

// "14.0.0.0": major, minor, revision, build. A static text; never null.
KV_EXPORT const char* imageDllVersionStr();
