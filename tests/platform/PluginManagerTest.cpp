// The plug-in manager over real modules: test modules (two that register resources, one without
// an entry point) copied into test folders. The conversion plug-in of the build tree is loaded
// the same way by its own tests.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "ole/platform/plugins/KvDeviceDriverManager.h"
#include "tests/support/TestSupport.h"

namespace {

// The names of the resources a walk gives, of one type or (type -1) of all.
std::vector<std::string> walk(KvDeviceDriverManager& manager, KvResourceType type = -1, int first = 0)
{
    KvDeviceDriverManagerIter it;
    it.init(&manager, 1, first);
    if (type >= 0) it.init(type);
    std::vector<std::string> out;
    for (; *it; ++it) out.emplace_back((*it)->getComponentName());
    return out;
}

void copyModule(const char* name, const TempDir& into)
{
    std::filesystem::copy_file(std::filesystem::path(KV_TEST_MODULE_DIR) / name, into.file(name));
}

using Names = std::vector<std::string>;

}  // namespace

// Modules load once, in the order of their names; one that will not load and one without an
// entry point are logged and skipped; other files are not looked at. Earlier folders shadow
// later ones, and a folder that is not there is no error.
TEST(PluginManager, LoadsModulesInOrderOnceAndSkipsTheBadOnes)
{
    TempDir dir, later;
    for (const char* name : {"kvtest_beta.so", "kvtest_alpha.so", "kvtest_noentry.so"}) copyModule(name, dir);
    copyModule("kvtest_alpha.so", later);
    put(dir.file("broken.so"), "not an object file");
    put(dir.file("README.txt"), "not a module");
    CapturingLogSink log;
    const std::string path = dir.file("") + "::/nonexistent/kvimage/plugins:" + later.file("");
    KvDeviceDriverManager manager(path.c_str());
    EXPECT_EQ(walk(manager), (Names{"kvtest_alpha:22", "kvtest_alpha:7", "kvtest_beta:22", "kvtest_beta:7"}));
    EXPECT_EQ(walk(manager, 22), (Names{"kvtest_alpha:22", "kvtest_beta:22"}));
    EXPECT_EQ(walk(manager, 22, 1), (Names{"kvtest_beta:22"}));
    EXPECT_EQ(walk(manager, 5), Names{});
    EXPECT_EQ(manager.moduleCount(), 2u);
    EXPECT_EQ(log.count({"broken.so", "not loaded"}), 1);
    EXPECT_EQ(log.count({"kvtest_noentry.so", "no entry point", "kvRegisterPluginResources"}), 1);
    EXPECT_EQ(log.messages().size(), 2u);
}

// Without plugin_path: the installed folder first, the build tree's last. With it, the
// process's manager searches what it says; a process of its own shows that.
TEST(PluginManager, SearchesThePluginPathSettingOrTheDefault)
{
    const std::string path = KvDeviceDriverManager::defaultSearchPath(), build = KV_BUILD_PLUGIN_DIR;
    ASSERT_GT(path.size(), build.size());
    EXPECT_EQ(path.substr(path.size() - build.size()), build);
    EXPECT_LT(path.find("kvimage/plugins"), path.size() - build.size());

    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TempDir dir;
    copyModule("kvtest_alpha.so", dir);
    const std::string folder = dir.file("");
    ScopedEnv setting("KV_plugin_path", folder.c_str());
    EXPECT_EXIT(
        {
            KvDeviceDriverManager* manager = KvDeviceDriverManager::theDeviceDriverManager();
            const bool ok = manager->searchPath() == folder && walk(*manager, 22) == Names{"kvtest_alpha:22"};
            std::_Exit(ok ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}
