#pragma once
// iImageConvert: what a conversion plug-in implements, and the bridge through which the
// library offers it the conversions and size changes it cannot do itself. The plug-ins are
// gathered once, from the host's plug-in manager, at the first conversion.

#include <vector>

#include "ole/image/KvSurface.h"
#include "ole/platform/plugins/KvComponentBase.h"

class KV_EXPORT iImageConvert : public KvResourceTypeBase {
public:
    static constexpr KvResourceType resourceType = 22;

    KvResourceType getResourceType() const override { return resourceType; }

    // True when this plug-in has filled `dst` as its descriptors say; false lets the next try.
    virtual bool convert(const Kv::Image::Surface& src, Kv::Image::Surface& dst) = 0;
    virtual bool resize(const Kv::Image::Surface& src, Kv::Image::Surface& dst) = 0;

    // True at once when the two are described alike; otherwise the first plug-in that accepts.
    static bool doConvert(const Kv::Image::Surface& src, Kv::Image::Surface& dst);
    // True at once when the sizes agree; otherwise the first plug-in that accepts.
    static bool doResize(const Kv::Image::Surface& src, Kv::Image::Surface& dst);
};

// Gathers the conversion plug-ins once.
KV_EXPORT void initialise();

// The resources of a type that the plug-in manager lists, in its order, as T.
template <class T>
void findPluginResources(std::vector<T*>& out, KvResourceType type);
