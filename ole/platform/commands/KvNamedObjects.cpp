#include "ole/platform/commands/KvNamedObjects.h"

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "ole/platform/os/StockServices.h"

namespace Kv {

namespace {

struct NamedObjectTable {
    std::mutex lock;
    std::map<std::pair<std::string, std::string>, void*> objects;  // (type name, name)
};

// Never destroyed: a static destructor of any module may still return a block to a pool.
NamedObjectTable& table()
{
    static Kv::Platform::Immortal<NamedObjectTable> theTable;
    return *theTable;
}

}  // namespace

class NamedObjectsNamespaceAccess {
public:
    static NamedObjectsNamespace* make() { return new NamedObjectsNamespace(); }
};

NamedObjectsNamespace* NamedObjectsNamespace::getGlobalNamespaceInstance()
{
    static NamedObjectsNamespace* const theNamespace = NamedObjectsNamespaceAccess::make();
    return theNamespace;
}

void* NamedObjectsNamespace::findOrCreate_(const std::type_info& type, const char* name,
                                           Creator creator)
{
    NamedObjectTable& t = table();
    std::lock_guard guard(t.lock);
    void*& object = t.objects[{type.name(), name ? name : ""}];
    if (!object && creator) object = creator();
    return object;
}

}  // namespace Kv
