// Settings through the test's own environment and temporary INI files; display texts; logs.

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "ole/platform/settings/KvLog.h"
#include "ole/platform/settings/KvResources.h"
#include "ole/platform/settings/KvSettings.h"
#include "tests/support/TestSupport.h"

namespace {

class PlatformSettings : public ::testing::Test {
protected:
    TempDir dir;
    CapturingLogSink log;
    // Whatever the machine has set, the tests start from no settings files.
    ScopedEnv settingsFile{"KV_SETTINGS_FILE", nullptr};
    ScopedEnv userFile{"KV_USER_SETTINGS_FILE", nullptr};
};

TEST_F(PlatformSettings, LayersAreEnvironmentUserFileSettingsFileDefault)
{
    const std::string global = dir.file("global.ini"), user = dir.file("user.ini");
    put(global, "kvtest_layer = 3\n[Sec]\nkvtest_layer = 4\n");
    put(user, "kvtest_layer = 2\n");
    settingsFile.set(global.c_str());
    userFile.set(user.c_str());

    ScopedEnv env("KV_kvtest_layer", "1");
    EXPECT_TRUE(UserConfig().getValue("kvtest_layer", 0, nullptr) == 1 && config_int("kvtest_layer", 0) == 1);

    env.set(nullptr);
    EXPECT_EQ(UserConfig().getValue("kvtest_layer", 0, ""), 2);
    EXPECT_EQ(GlobalConfig().getValue("kvtest_layer", 0, nullptr), 3) << "only User reads the user file";
    EXPECT_EQ(config_int("kvtest_layer", 0), 3);
    EXPECT_EQ(GlobalConfig().getValue("kvtest_layer", 0, "Sec"), 4);
    EXPECT_EQ(GlobalConfig().getValue("KVTEST_LAYER", 0, "sec"), 4) << "file names ignore case";
    {
        ScopedEnv sectioned("KV_Sec_kvtest_layer", "9");
        EXPECT_EQ(GlobalConfig().getValue("kvtest_layer", 0, "Sec"), 9);
    }

    std::remove(global.c_str());
    std::remove(user.c_str());
    EXPECT_TRUE(UserConfig().getValue("kvtest_layer", 77, nullptr) == 77 &&
                GlobalConfig().getValue("kvtest_layer", "fallback", "Sec") == "fallback");
    EXPECT_TRUE(log.messages().empty()) << "a missing settings file is silent";
}

TEST_F(PlatformSettings, NumbersAndBooleansParseStrictly)
{
    ScopedEnv env("KV_kvtest_value", nullptr);
    const std::pair<const char*, int> numbers[] = {
        {"42", 42},   {"-7", -7},      {"+5", 5},       {" 8 ", 8},        {"08", 8},
        {"0x1F", 31}, {"-0X10", -16},  {"2147483647", INT_MAX},            {"-2147483648", INT_MIN},
        {"2147483648", -1},            {"12abc", -1},   {"", -1},          {"1.5", -1},
        {"0x", -1},   {"--3", -1}};
    for (const auto& [text, expected] : numbers) {
        env.set(text);
        EXPECT_EQ(config_int("kvtest_value", -1), expected) << '"' << text << '"';
    }

    // 1 true, 0 false, -1 the default, whichever it is.
    const std::pair<const char*, int> flags[] = {
        {"1", 1},  {"TRUE", 1}, {"Yes", 1}, {"on", 1},     {"0", 0}, {"false", 0},
        {"NO", 0}, {"Off", 0},  {"maybe", -1}, {"2", -1},  {"", -1}};
    for (const auto& [text, expected] : flags) {
        env.set(text);
        const bool whenTrue = GlobalConfig().getValue("kvtest_value", true, nullptr);
        const bool whenFalse = GlobalConfig().getValue("kvtest_value", false, nullptr);
        EXPECT_EQ(whenTrue == whenFalse ? int(whenTrue) : -1, expected) << '"' << text << '"';
    }
}

TEST_F(PlatformSettings, BadLinesAreLoggedWithTheirPlaceAndSkipped)
{
    const std::string path = dir.file("bad.ini");
    put(path, "first = 1\nthis line means nothing\n[unclosed\n# commented = 5\n; also = 6\n\n"
              "[Ok]  ; a comment after a section\nsecond=2\r\n = 3\n");
    settingsFile.set(path.c_str());

    EXPECT_EQ(config_int("first", 0), 1);
    EXPECT_EQ(log.messages().size(), 3u);
    for (const char* line : {"line 2", "line 3", "line 9"}) EXPECT_EQ(log.count({path, line}), 1) << line;
    EXPECT_EQ(GlobalConfig().getValue("second", 0, "Ok"), 2) << "Windows line ends";
    EXPECT_EQ(config_int("commented", 0) + config_int("also", 0), 0);
}

TEST_F(PlatformSettings, UserWritesKeepTheRestOfTheFile)
{
    const std::string path = dir.file("user.ini");
    put(path, "# keep me\nother = 5\n\n[Configuration]\nFullFrameSD = 0\nKeep = x\n\n[Else]\nk = v\n");
    userFile.set(path.c_str());

    EXPECT_TRUE(UserConfig().setValue("FullFrameSD", true, "Configuration"));
    EXPECT_TRUE(UserConfig().getValue("FullFrameSD", false, "Configuration"));
    EXPECT_TRUE(UserConfig().setValue("Added", 12, "configuration"));
    EXPECT_TRUE(UserConfig().setValue("top", "t", nullptr));
    EXPECT_TRUE(UserConfig().setValue("n", "new", "Fresh"));

    EXPECT_EQ(contents(path),
              "# keep me\nother = 5\ntop = t\n\n"
              "[Configuration]\nFullFrameSD = 1\nKeep = x\nAdded = 12\n\n"
              "[Else]\nk = v\n\n"
              "[Fresh]\nn = new\n");
    EXPECT_TRUE(UserConfig().getValue("Added", 0, "Configuration") == 12 && UserConfig().getValue("n", "", "Fresh") == "new");

    const std::string created = dir.file("created.ini");
    userFile.set(created.c_str());
    EXPECT_TRUE(UserConfig().setValue("FullFrameSD", false, "Configuration"));
    EXPECT_EQ(contents(created), "[Configuration]\nFullFrameSD = 0\n");
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(PlatformSettings, UserWritesNeedTheUserFileGlobalWritesStayInTheProcess)
{
    EXPECT_FALSE(UserConfig().setValue("kvtest_nowhere", 1, "Configuration"));
    EXPECT_EQ(log.count({"kvtest_nowhere", "KV_USER_SETTINGS_FILE"}), 1);
    userFile.set(dir.file("user.ini").c_str());
    EXPECT_FALSE(UserConfig().setValue("kvtest_multi", "two\nlines", nullptr));
    EXPECT_EQ(log.count({"kvtest_multi"}), 1);

    EXPECT_TRUE(GlobalConfig().setValue("kvtest_global", 17, "Run"));
    EXPECT_TRUE(GlobalConfig().getValue("kvtest_global", 0, "Run") == 17 && UserConfig().getValue("kvtest_global", 0, "Run") == 17);
    ScopedEnv env("KV_Run_kvtest_global", "18");
    EXPECT_EQ(GlobalConfig().getValue("kvtest_global", 0, "Run"), 18) << "the environment stands first";
}

TEST(PlatformResources, TableTextsSettingOverridesAndReplacement)
{
    EXPECT_EQ(resourceStrW(10135), L"DPX");
    EXPECT_EQ(resourceStrW(13041), L"Interlaced Lower Field First");
    EXPECT_TRUE(resourceStrW(1).empty());
    {
        ScopedEnv env("KV_Resources_10135", "Digital Picture Exchange \xE2\x9C\x93");
        EXPECT_EQ(resourceStrW(10135), L"Digital Picture Exchange \u2713");
    }
    EXPECT_EQ(resourceStrW(10135), L"DPX");

    struct OneText final : iResourceTable {
        bool lookup(int id, LightweightString<wchar_t>& text) override
        {
            if (id == 7) text = L"seven";
            return id == 7;
        }
    } table;
    iResourceTable* previous = Kv::Platform::setResourceTable(&table);
    EXPECT_TRUE(resourceStrW(7) == L"seven" && resourceStrW(10135).empty());
    EXPECT_EQ(Kv::Platform::setResourceTable(nullptr), &table);
    EXPECT_EQ(resourceStrW(10135), L"DPX");
    Kv::Platform::setResourceTable(previous);
}

TEST(PlatformLog, EachMessageArrivesWholeOnItsChannel)
{
    CapturingLogSink log;
    Log("log %d\n", 1);
    diag_printf("diag %s", "two");
    LogBoth("both %c\n", '3');
    const std::string big(5000, 'x');
    Log("[%s]", big.c_str());

    using Message = std::pair<iLogSink::Channel, std::string>;
    const std::vector<Message> expected{{iLogSink::AppLog, "log 1\n"},
                                        {iLogSink::Diagnostics, "diag two"},
                                        {iLogSink::Both, "both 3\n"},
                                        {iLogSink::AppLog, "[" + big + "]"}};
    EXPECT_EQ(log.messages(), expected);
}

TEST(PlatformLog, StockSinkWritesTheApplicationLogToItsFile)
{
    TempDir dir;
    const std::string path = dir.file("app.log");
    {
        ScopedEnv env("KV_LOG_FILE", path.c_str());
        Log("first line\n");
        LogBoth("second line\n");
        diag_printf("%s", "");  // diagnostics stay off the file
    }
    Log("%s", "");  // lets the sink see that the file is no longer wanted
    EXPECT_EQ(contents(path), "first line\nsecond line\n");
}

}  // namespace
