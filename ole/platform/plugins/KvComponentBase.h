#pragma once
// The base classes of plug-in resources: a component, and a resource of a numbered type that a
// plug-in module offers to the host (conversion plug-ins are type 22).

#include "ole/Kv/KvRefCount.h"
#include "ole/platform/os/KvPlatformExport.h"

using KvResourceType = int;

// Marks the state a component shares with the module that made it.
class KvComponentBaseSharedResourceTag {
public:
    virtual ~KvComponentBaseSharedResourceTag() = default;
};

class KV_EXPORT KvComponentBase : public virtual KvComponentBaseSharedResourceTag {
public:
    ~KvComponentBase() override = default;
    // A short name for lists and logs.
    virtual const char* getComponentName() const = 0;
};

class KV_EXPORT KvResourceTypeBase : public KvComponentBase {
public:
    ~KvResourceTypeBase() override = default;
    virtual KvResourceType getResourceType() const = 0;
};
