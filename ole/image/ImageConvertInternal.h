#pragma once
// What the sources of ImageConverter share among themselves and show to nobody else.

#include "ole/image/KvSurface.h"

// Gives the two field pictures split from `src` their video descriptors: the Video and
// VideoSample groups of the frame, then the field order. out1 always holds the upper lines and
// out2 the lower; at 480 and 486 lines (the NTSC rasters) the upper lines are the second
// field. Both fields are marked top-down and opaque.
void setOutputFieldsMetadata(const Kv::Image::Surface& src, Kv::Image::Surface& out1,
                             Kv::Image::Surface& out2);
