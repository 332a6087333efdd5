// A plug-in module for the plug-in manager's tests. Built twice: as a module that registers a
// resource of type 22 and one of type 7, and, with KV_TEST_NO_ENTRY_POINT, as one that lacks
// the entry point.

#include "ole/platform/plugins/KvDeviceDriverManager.h"

namespace {

class TestResource final : public KvResourceTypeBase {
public:
    TestResource(const char* name, KvResourceType type) : name_(name), type_(type) {}
    const char* getComponentName() const override { return name_; }
    KvResourceType getResourceType() const override { return type_; }

private:
    const char* name_;
    KvResourceType type_;
};

}  // namespace

#ifndef KV_TEST_NO_ENTRY_POINT
extern "C" KV_EXPORT void kvRegisterPluginResources(KvPluginRegistry* registry)
{
    static TestResource converter(KV_TEST_MODULE_NAME ":22", 22);
    static TestResource other(KV_TEST_MODULE_NAME ":7", 7);
    registry->addResource(&converter);
    registry->addResource(&other);
}
#else
extern "C" KV_EXPORT int kvTestModuleWithoutEntryPoint() { return 1; }
#endif
