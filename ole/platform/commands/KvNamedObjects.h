#pragma once
// Objects shared by every module of the process, found by type and name: the first caller
// makes one, all later callers get the same. A template instantiated in several modules (a
// pool of command blocks, say) reaches one and the same object through here, where a static
// of its own would give each module a copy.

#include <typeinfo>

#include "ole/platform/os/KvPlatformExport.h"

namespace Kv {

namespace TypeManip {

// The creator that findOrCreate hands to the namespace: a value-initialised T, so that a plain
// aggregate comes zeroed.
template <class T>
struct TemplatedNew {
    static void* new_() { return new T(); }
};

}  // namespace TypeManip

class KV_EXPORT NamedObjectsNamespace {
public:
    using Creator = void* (*)();

    // The process-wide namespace; it and everything in it live until the process ends.
    static NamedObjectsNamespace* getGlobalNamespaceInstance();

    // The object of this type and name, made by `creator` if there is none yet. Types are told
    // apart by their names, so one type from two modules is one type here. Thread-safe: two
    // first callers get one object, and `creator` runs once.
    void* findOrCreate_(const std::type_info& type, const char* name, Creator creator);

    NamedObjectsNamespace(const NamedObjectsNamespace&) = delete;
    NamedObjectsNamespace& operator=(const NamedObjectsNamespace&) = delete;

private:
    NamedObjectsNamespace() = default;
    friend class NamedObjectsNamespaceAccess;
};

namespace NamedObjects {

// Sets *holder to the process's T of that name, making it on first use.
template <class T>
void findOrCreate(T** holder, const char* name)
{
    *holder = static_cast<T*>(NamedObjectsNamespace::getGlobalNamespaceInstance()->findOrCreate_(
        typeid(T), name, &TypeManip::TemplatedNew<T>::new_));
}

}  // namespace NamedObjects

}  // namespace Kv
