// The plug-in bridge. Its list is gathered once a process, so each case runs in a process of its
// own (a threadsafe death test) whose plug-in path is an empty folder: the only plug-ins are
// those the case registers in process.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ole/image/iImageConvert.h"
#include "ole/platform/plugins/KvDeviceDriverManager.h"
#include "tests/image/ImageTestPictures.h"

using namespace Kv::Image;
using ImageTest::check;
using ImageTest::inFreshProcess;

namespace {

// Writes each offer into a journal, and answers as told.
struct RecordingPlugin final : iImageConvert {
    RecordingPlugin(const char* n, bool a, std::string& j) : name(n), accepts(a), journal(j) {}
    const char* getComponentName() const override { return name; }
    bool convert(const Surface&, Surface&) override { return journal += std::string(name) + ".convert ", accepts; }
    bool resize(const Surface&, Surface&) override { return journal += std::string(name) + ".resize ", accepts; }
    const char* name;
    bool accepts;
    std::string& journal;
};

}  // namespace

TEST(iImageConvert, WithoutPluginsOnlyAlikePicturesSucceed)
{
    inFreshProcess([] {
        Surface a(8, 8, ARGB, true, 0, 0, 0), b(8, 8, UYVY, true, 0, 0, 0), c(4, 4, ARGB, true, 0, 0, 0);
        return check(!iImageConvert::doConvert(a, b), "doConvert of differing pictures") +
               check(!iImageConvert::doResize(a, c), "doResize of differing sizes") +
               check(iImageConvert::doConvert(a, a) && iImageConvert::doResize(a, b), "nothing to do");
    });
}

// Alike pictures (for doResize: equal sizes, whatever the formats) ask no plug-in. Otherwise
// offers go in list order until one accepts. The list is the manager's at the first
// conversion: later changes to the manager are not seen.
TEST(iImageConvert, OffersInOrderUntilOneAccepts)
{
    inFreshProcess([] {
        std::string journal;
        RecordingPlugin first("first", false, journal), second("second", true, journal), third("third", true, journal),
            late("late", true, journal);
        KvDeviceDriverManager* manager = KvDeviceDriverManager::theDeviceDriverManager();
        for (RecordingPlugin* p : {&first, &second, &third}) manager->registerResource(p);
        Surface a(8, 8, ARGB, true, 0, 0, 0), alike(8, 8, ARGB, true, 0, 0, 0), rgb(8, 8, RGB, true, 0, 0, 0),
            small(4, 4, ARGB, true, 0, 0, 0);
        std::string out = check(iImageConvert::doConvert(a, alike) && iImageConvert::doResize(a, rgb), "alike");
        out += check(journal.empty(), "alike pictures asked: " + journal);
        alike.setIsVideoGamutScaled(true);  // the gamut flag alone makes them differ
        out += check(iImageConvert::doConvert(a, alike) && iImageConvert::doResize(a, small), "offers");
        out += check(journal == "first.convert second.convert first.resize second.resize ", "order: " + journal);

        manager->unregisterResource(&second);
        manager->unregisterResource(&third);
        manager->registerResource(&late);
        journal.clear();
        iImageConvert::doConvert(a, rgb);
        out += check(journal == "first.convert second.convert ", "after the manager changed: " + journal);
        std::vector<iImageConvert*> found;
        findPluginResources(found, iImageConvert::resourceType);
        out += check(found == std::vector<iImageConvert*>{&first, &late}, "findPluginResources");
        return out;
    });
}
