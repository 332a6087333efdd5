// The bridge to the conversion plug-ins: the list of iImageConvert resources, gathered once from
// the host's plug-in manager, and the two entries that offer them a conversion or a size change.

#include "ole/image/iImageConvert.h"

#include <atomic>

#include "ole/platform/os/CriticalSection.h"
#include "ole/platform/plugins/KvDeviceDriverManager.h"

using Kv::Image::Surface;

namespace {

// The plug-ins in the order the manager lists them. Written by the first initialise() only.
std::vector<iImageConvert*>& plugins()
{
    static std::vector<iImageConvert*>* const list = new std::vector<iImageConvert*>;
    return *list;
}

// Raised before the list is gathered, so that a plug-in that converts while it is being
// registered finds the gathering under way rather than starting it again.
std::atomic<bool> initialised{false};
// Raised once the list is complete.
std::atomic<bool> gathered{false};

// Holds back a second thread until the first one has gathered the list; the gathering thread
// itself may come back in.
CriticalSection& gatheringLock()
{
    static CriticalSection* const section = new CriticalSection("iImageConvert plug-ins");
    return *section;
}

bool sameDescription(const Surface& a, const Surface& b)
{
    return a.getWidth() == b.getWidth() && a.getHeight() == b.getHeight() &&
           a.getDataFormat() == b.getDataFormat() && a.getBitsPerComponent() == b.getBitsPerComponent() &&
           a.getBitsPerPixel() == b.getBitsPerPixel() &&
           a.getIsVideoGamutScaled() == b.getIsVideoGamutScaled();
}

}  // namespace

template <class T>
void findPluginResources(std::vector<T*>& out, KvResourceType type)
{
    KvDeviceDriverManagerIter it;
    it.init(KvDeviceDriverManager::theDeviceDriverManager(), 1, 0);
    it.init(type);
    while (KvResourceTypeBase* resource = *it) {
        if (T* wanted = dynamic_cast<T*>(resource)) out.push_back(wanted);
        ++it;
    }
}

template void findPluginResources<iImageConvert>(std::vector<iImageConvert*>&, KvResourceType);

void initialise()
{
    CriticalSection::Lock hold(gatheringLock());
    if (initialised.load(std::memory_order_acquire)) return;
    initialised.store(true, std::memory_order_release);
    findPluginResources(plugins(), iImageConvert::resourceType);
    gathered.store(true, std::memory_order_release);
}

bool iImageConvert::doConvert(const Surface& src, Surface& dst)
{
    if (!gathered.load(std::memory_order_acquire)) initialise();
    if (sameDescription(src, dst)) return true;
    for (iImageConvert* plugin : plugins())
        if (plugin->convert(src, dst)) return true;
    return false;
}

bool iImageConvert::doResize(const Surface& src, Surface& dst)
{
    if (!gathered.load(std::memory_order_acquire)) initialise();
    if (src.getWidth() == dst.getWidth() && src.getHeight() == dst.getHeight()) return true;
    for (iImageConvert* plugin : plugins())
        if (plugin->resize(src, dst)) return true;
    return false;
}
