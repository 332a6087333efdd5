#pragma once
// The whole public interface of the picture library and of the platform it runs on.
// A host includes this one header as <ole/kvimage.h> and links KvImage::kvimage.

// Namespace-level templates: shared pointers, reference counts, exceptions.
#include "ole/Kv/KvException.h"
#include "ole/Kv/KvPtr.h"
#include "ole/Kv/KvRefCount.h"

// Foundation: strings, arrays, allocation, splitting.
#include "ole/misc/KvSplit.h"
#include "ole/misc/LightweightString.h"
#include "ole/misc/StdAllocator.h"
#include "ole/misc/Vector.h"
#include "ole/misc/XY.h"

// The platform: OS() and its services, threads, locks, assertions, host images and the media
// service, the plug-in manager, text, settings, logs, display texts.
#include "ole/platform/os/CriticalSection.h"
#include "ole/platform/os/KvByteBuffer.h"
#include "ole/platform/os/KvAssert.h"
#include "ole/platform/os/KvThread.h"
#include "ole/platform/os/OS.h"
#include "ole/platform/media/KvHostImage.h"
#include "ole/platform/media/KvMediaServices.h"
#include "ole/platform/media/KvMemoryImage.h"
#include "ole/platform/media/KvOIIOMediaServices.h"
#include "ole/platform/plugins/KvComponentBase.h"
#include "ole/platform/plugins/KvDeviceDriverManager.h"
#include "ole/platform/settings/KvLog.h"
#include "ole/platform/settings/KvResources.h"
#include "ole/platform/settings/KvSettings.h"
#include "ole/platform/text/InputStream.h"
#include "ole/platform/text/KvText.h"

// The picture library.
#include "ole/image/KvImageDefs.h"
#include "ole/image/KvImageDescriptors.h"
#include "ole/image/KvSurface.h"
#include "ole/image/KvImageWrapper.h"
#include "ole/image/iImageConvert.h"
#include "ole/image/TopDownRect.h"
#include "ole/image/KvImageVersion.h"
#include "ole/image/tgaload.h"
#include "ole/image/Gif.h"
#include "ole/image/cineon.h"
#include "ole/image/ImageConvert.h"
#include "ole/image/MTPixelIterator.h"
