// The plug-in manager: module search, loading and the resource list.

#include "ole/platform/plugins/KvDeviceDriverManager.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "ole/platform/settings/KvLog.h"
#include "ole/platform/settings/KvSettings.h"

namespace {

constexpr std::string_view moduleSuffix = ".so";

#ifdef KV_RELATIVE_PLUGIN_DIR
// Anchors dladdr on this library.
void anchor() {}

// The folder of the shared object this code lives in, or empty.
std::string ownFolder()
{
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void*>(&anchor), &info) || !info.dli_fname) return {};
    std::error_code error;
    const std::filesystem::path self = std::filesystem::canonical(info.dli_fname, error);
    return error ? std::string() : self.parent_path().string();
}
#endif

std::string buildDefaultSearchPath()
{
    std::vector<std::string> folders;
#ifdef KV_RELATIVE_PLUGIN_DIR
    // An installed tree that was moved still finds its plug-ins beside its libraries.
    const std::string here = ownFolder();
    if (!here.empty()) folders.push_back(here + "/" + KV_RELATIVE_PLUGIN_DIR);
#endif
#ifdef KV_INSTALLED_PLUGIN_DIR
    folders.emplace_back(KV_INSTALLED_PLUGIN_DIR);
#endif
#ifdef KV_BUILD_PLUGIN_DIR
    folders.emplace_back(KV_BUILD_PLUGIN_DIR);
#endif
    std::string path;
    for (const std::string& folder : folders) {
        if (!path.empty()) path += ':';
        path += folder;
    }
    return path;
}

std::vector<std::string> splitPath(std::string_view path)
{
    std::vector<std::string> folders;
    while (!path.empty()) {
        const auto colon = path.find(':');
        const std::string_view folder = path.substr(0, colon);
        if (!folder.empty()) folders.emplace_back(folder);
        if (colon == std::string_view::npos) break;
        path.remove_prefix(colon + 1);
    }
    return folders;
}

// The module files of a folder, sorted by name; none when the folder is not there.
std::vector<std::filesystem::path> modulesIn(const std::string& folder)
{
    std::vector<std::filesystem::path> found;
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    if (error) return found;
    for (const std::filesystem::directory_entry& entry : it) {
        const std::string name = entry.path().filename().string();
        if (name.size() <= moduleSuffix.size() ||
            name.compare(name.size() - moduleSuffix.size(), moduleSuffix.size(), moduleSuffix) != 0)
            continue;
        std::error_code kindError;
        if (!entry.is_regular_file(kindError)) continue;
        found.push_back(entry.path());
    }
    std::sort(found.begin(), found.end(),
              [](const auto& a, const auto& b) { return a.filename().string() < b.filename().string(); });
    return found;
}

}  // namespace

struct KvDeviceDriverManager::Impl final : KvPluginRegistry {
    std::string searchPath;
    mutable std::recursive_mutex lock;  // a module's entry point may register while loading
    std::once_flag loaded;
    std::vector<KvResourceTypeBase*> resources;
    std::vector<void*> modules;

    void addResource(KvResourceTypeBase* resource) override
    {
        if (!resource) return;
        std::lock_guard hold(lock);
        resources.push_back(resource);
    }

    void load()
    {
        std::set<std::string> seenFolders;
        std::set<std::string> seenNames;
        for (const std::string& folder : splitPath(searchPath)) {
            std::error_code error;
            const std::filesystem::path real = std::filesystem::canonical(folder, error);
            if (error || !seenFolders.insert(real.string()).second) continue;
            for (const std::filesystem::path& file : modulesIn(real.string())) {
                // An installed module shadows a build tree's module of the same name.
                if (!seenNames.insert(file.filename().string()).second) continue;
                loadModule(file.string());
            }
        }
    }

    void loadModule(const std::string& path)
    {
        void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            const char* why = dlerror();
            Log("Plug-in module \"%s\" not loaded: %s\n", path.c_str(), why ? why : "unknown error");
            return;
        }
        auto entry = reinterpret_cast<KvRegisterPluginResourcesFn>(dlsym(handle, KV_PLUGIN_ENTRY_POINT));
        if (!entry) {
            Log("Plug-in module \"%s\" not loaded: it has no entry point %s\n", path.c_str(),
                KV_PLUGIN_ENTRY_POINT);
            dlclose(handle);
            return;
        }
        {
            std::lock_guard hold(lock);
            modules.push_back(handle);
        }
        entry(this);
    }
};

KvDeviceDriverManager::KvDeviceDriverManager(const char* searchPath) : impl_(new Impl)
{
    impl_->searchPath = searchPath ? searchPath : "";
}

// Modules stay loaded: their resources may still be listed by somebody.
KvDeviceDriverManager::~KvDeviceDriverManager() { delete impl_; }

const char* KvDeviceDriverManager::defaultSearchPath()
{
    static const std::string path = buildDefaultSearchPath();
    return path.c_str();
}

KvDeviceDriverManager* KvDeviceDriverManager::theDeviceDriverManager()
{
    // Made on first use and never destroyed: a static destructor of another module may still
    // walk the list.
    static KvDeviceDriverManager* const manager = [] {
        const LightweightString<char> setting = GlobalConfig().getValue("plugin_path", "", nullptr);
        return new KvDeviceDriverManager(setting.empty() ? defaultSearchPath() : setting.c_str());
    }();
    return manager;
}

void KvDeviceDriverManager::loadModules()
{
    std::call_once(impl_->loaded, [this] { impl_->load(); });
}

void KvDeviceDriverManager::registerResource(KvResourceTypeBase* resource) { impl_->addResource(resource); }

bool KvDeviceDriverManager::unregisterResource(KvResourceTypeBase* resource)
{
    std::lock_guard hold(impl_->lock);
    auto& list = impl_->resources;
    const auto at = std::find(list.begin(), list.end(), resource);
    if (at == list.end()) return false;
    list.erase(at);
    return true;
}

unsigned int KvDeviceDriverManager::resourceCount() const
{
    std::lock_guard hold(impl_->lock);
    return unsigned(impl_->resources.size());
}

KvResourceTypeBase* KvDeviceDriverManager::resourceAt(unsigned int index) const
{
    std::lock_guard hold(impl_->lock);
    return index < impl_->resources.size() ? impl_->resources[index] : nullptr;
}

const char* KvDeviceDriverManager::searchPath() const { return impl_->searchPath.c_str(); }

unsigned int KvDeviceDriverManager::moduleCount() const
{
    std::lock_guard hold(impl_->lock);
    return unsigned(impl_->modules.size());
}

// --- Iterators -------------------------------------------------------------------------------

void KvPluginManagerIter::init(KvDeviceDriverManager* manager, int loadModules, int first)
{
    manager_ = manager;
    index_ = first > 0 ? unsigned(first) : 0;
    if (manager_ && loadModules) manager_->loadModules();
    settle();
}

KvResourceTypeBase* KvPluginManagerIter::operator*() const
{
    return manager_ ? manager_->resourceAt(index_) : nullptr;
}

KvPluginManagerIter& KvPluginManagerIter::operator++()
{
    if (manager_ && index_ < manager_->resourceCount()) {
        ++index_;
        settle();
    }
    return *this;
}

bool KvPluginManagerIter::accepts(KvResourceTypeBase*) const { return true; }

void KvPluginManagerIter::settle()
{
    if (!manager_) return;
    while (KvResourceTypeBase* resource = manager_->resourceAt(index_)) {
        if (accepts(resource)) return;
        ++index_;
    }
}

void KvDeviceDriverManagerIter::init(KvResourceType type)
{
    type_ = type;
    filtered_ = true;
    settle();
}

bool KvDeviceDriverManagerIter::accepts(KvResourceTypeBase* resource) const
{
    return !filtered_ || resource->getResourceType() == type_;
}
