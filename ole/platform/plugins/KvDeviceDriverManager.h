#pragma once
// The plug-in manager. It lists the resources of the plug-in modules it finds on the plug-in
// path, and those that the process registers itself. A module is a shared object that exports
// one C entry point, kvRegisterPluginResources, through which it hands over its resources;
// each module is loaded once, folder by folder and in the order of file names, and stays
// loaded until the process ends, so its resources stay valid.
//
// The plug-in path is the setting plugin_path: folders separated by ':'. Without it, the
// installed plug-in folder (found beside this library, then at the configured prefix), then the
// build tree's.
//
// Walking the list:
//     KvDeviceDriverManagerIter it;
//     it.init(KvDeviceDriverManager::theDeviceDriverManager(), 1, 0);
//     it.init(type);
//     while (KvResourceTypeBase* resource = *it) { ...; ++it; }

#include "ole/platform/os/KvPlatformExport.h"
#include "ole/platform/plugins/KvComponentBase.h"

// Handed to a module's entry point, which adds each of its resources. The resources remain the
// module's own.
class KvPluginRegistry {
public:
    virtual void addResource(KvResourceTypeBase* resource) = 0;

protected:
    ~KvPluginRegistry() = default;
};

// The entry point of a plug-in module, exported by this name with C linkage:
//     extern "C" void kvRegisterPluginResources(KvPluginRegistry* registry);
using KvRegisterPluginResourcesFn = void (*)(KvPluginRegistry* registry);
#define KV_PLUGIN_ENTRY_POINT "kvRegisterPluginResources"

class KV_EXPORT KvDeviceDriverManager {
public:
    // A manager over the folders of `searchPath`, separated by ':', searched in that order.
    // Nothing is loaded before the first loadModules().
    explicit KvDeviceDriverManager(const char* searchPath);
    ~KvDeviceDriverManager();
    KvDeviceDriverManager(const KvDeviceDriverManager&) = delete;
    KvDeviceDriverManager& operator=(const KvDeviceDriverManager&) = delete;

    // The process's manager, over the plug-in path of the settings, read at its first use.
    static KvDeviceDriverManager* theDeviceDriverManager();
    // The folders searched when plugin_path is not set, ':'-separated.
    static const char* defaultSearchPath();

    // Loads the modules of the search path, the first time only. A module that cannot be
    // loaded, or that has no entry point, is reported through Log and skipped. A file whose
    // name was loaded from an earlier folder is not loaded again.
    void loadModules();
    // Adds a resource of the process's own, listed after those already there. The caller keeps
    // it alive while it is registered.
    void registerResource(KvResourceTypeBase* resource);
    // Takes it off the list again; true if it was there.
    bool unregisterResource(KvResourceTypeBase* resource);

    // The listed resources, in order; null past the end.
    unsigned int resourceCount() const;
    KvResourceTypeBase* resourceAt(unsigned int index) const;
    // The folders searched, ':'-separated, and how many modules have been loaded from them.
    const char* searchPath() const;
    unsigned int moduleCount() const;

private:
    struct Impl;
    Impl* impl_;
};

// Walks the resources of a manager.
class KV_EXPORT KvPluginManagerIter {
public:
    KvPluginManagerIter() = default;
    virtual ~KvPluginManagerIter() = default;

    // Starts at resource number `first` of `manager`; with `loadModules` not 0, the manager's
    // modules are loaded first (once for the manager's life).
    void init(KvDeviceDriverManager* manager, int loadModules, int first);
    // The present resource, or null at the end.
    KvResourceTypeBase* operator*() const;
    KvPluginManagerIter& operator++();

protected:
    virtual bool accepts(KvResourceTypeBase* resource) const;
    // Moves forward to the first accepted resource from the present place on.
    void settle();

private:
    KvDeviceDriverManager* manager_ = nullptr;
    unsigned int index_ = 0;
};

// Walks the resources of one type.
class KV_EXPORT KvDeviceDriverManagerIter : public KvPluginManagerIter {
public:
    using KvPluginManagerIter::init;
    // From here on only resources of `type` are listed.
    void init(KvResourceType type);

protected:
    bool accepts(KvResourceTypeBase* resource) const override;

private:
    KvResourceType type_ = 0;
    bool filtered_ = false;
};
