// kvimage platform: what the library sees of the process around it: processors, the settings
// it reads at load and where each value came from, and the display texts it uses. With
// --check it also exercises the platform services a picture job relies on.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

#include "../Verb.h"
#include "ole/image/KvImageVersion.h"
#include "ole/platform/os/CriticalSection.h"
#include "ole/platform/os/KvThread.h"
#include "ole/platform/os/OS.h"
#include "ole/platform/settings/KvResources.h"
#include "ole/platform/settings/KvSettings.h"
#include "ole/platform/text/KvText.h"

namespace KvCli {

namespace {

enum class Reader { ConfigInt, Global, User };

struct Setting {
    const char* section;  // null for none
    const char* key;
    Reader reader;
    const char* defaultValue;
    bool boolean;
};

// The settings the library reads once at load, with their defaults.
const Setting settings[] = {
    {nullptr, "dpx_force_linear", Reader::ConfigInt, "0", false},
    {nullptr, "dpx_force_log", Reader::ConfigInt, "0", false},
    {nullptr, "dpx_log2lin_black_level", Reader::ConfigInt, "95", false},
    {nullptr, "dpx_log2lin_white_level", Reader::ConfigInt, "685", false},
    {nullptr, "auto_crop_tolerance", Reader::ConfigInt, "32", false},
    {nullptr, "ImageCacheSize", Reader::Global, "512", false},
    {nullptr, "ImageCacheItems", Reader::Global, "32", false},
    {"Configuration", "FullFrameSD", Reader::User, "false", true},
    {nullptr, "plugin_path", Reader::Global, "", false},
};

// The display texts the library fetches by number.
const int resourceIds[] = {10087, 10135, 10136, 12207, 13040, 13041};

std::string environmentName(const Setting& setting)
{
    std::string name = "KV_";
    if (setting.section) name += std::string(setting.section) + "_";
    return name + setting.key;
}

std::string currentValue(const Setting& setting)
{
    if (setting.reader == Reader::ConfigInt)
        return std::to_string(config_int(setting.key, std::atoi(setting.defaultValue)));
    RegistryConfig& config = setting.reader == Reader::User ? UserConfig() : GlobalConfig();
    if (setting.boolean)
        return config.getValue(setting.key, std::strcmp(setting.defaultValue, "true") == 0,
                               setting.section)
                   ? "true"
                   : "false";
    if (*setting.defaultValue && std::strspn(setting.defaultValue, "0123456789") ==
                                     std::strlen(setting.defaultValue))
        return std::to_string(
            config.getValue(setting.key, std::atoi(setting.defaultValue), setting.section));
    return config.getValue(setting.key, setting.defaultValue, setting.section).c_str();
}

const char* sourceOf(const Setting& setting)
{
    if (std::getenv(environmentName(setting).c_str())) return "environment";
    LightweightString<char> value;
    const auto scope = setting.reader == Reader::User ? iSettingsStore::User : iSettingsStore::Global;
    iSettingsStore* store = Kv::Platform::settingsStore();
    if (store && store->lookup(scope, setting.section, setting.key, value)) return "file";
    return "default";
}

void printFileSetting(const char* label, const char* variable, const char* unset)
{
    const char* value = std::getenv(variable);
    std::printf("  %-22s %s  (%s)\n", label, value && *value ? value : unset, variable);
}

// --- --check ----------------------------------------------------------------------------

struct ThreadProbe {
    Kv::Ptr<iThreadEvent> started;
    LightweightString<char> seenName;
};

iThread::eExecRC probeThread(void* argument)
{
    auto* probe = static_cast<ThreadProbe*>(argument);
    if (Kv::Ptr<iThread> self = coThreadCurrent()) probe->seenName = self->name();
    probe->started->signal();
    return iThread::eExecOK;
}

bool checkThreads()
{
    // A name longer than the kernel's 15 characters must come back whole.
    static const char name[] = "$kvimage platform check thread";
    ThreadProbe probe;
    probe.started = OS()->synchronisation()->createEvent(1, 0, 0);
    if (!probe.started) return false;
    const unsigned short id = co_create(probeThread, name, 0, &probe, 0, 0);
    if (id == 0 || !probe.started->wait(10000)) return false;
    Kv::Ptr<iThread> thread = coThreadGet(id);
    if (thread && !thread->waitForExit(10000)) return false;
    return probe.seenName == LightweightString<char>(name);
}

bool checkLocks()
{
    Kv::Ptr<iCriticalSection> section = OS()->synchronisation()->createCriticalSection(0);
    if (!section) return false;
    section->enter();
    const bool reentered = section->tryEnter();  // the owner may enter again
    if (reentered) section->leave();
    section->leave();
    return reentered;
}

bool checkFiles()
{
    const char* folder = std::getenv("TMPDIR");
    std::string path = std::string(folder && *folder ? folder : "/tmp") + "/kvimage-platform-check-" +
                       std::to_string(static_cast<long>(::getpid()));
    const LightweightString<wchar_t> widePath = fromUTF8(path.c_str());
    static const char payload[] = "kvimage platform check";
    bool ok = false;
    if (Kv::Ptr<iFile> out = OS()->fileSystem()->open(widePath, 2, 3, 0, 0)) {
        ok = out->write(payload, sizeof payload) == sizeof payload;
    }
    if (ok) {
        ok = false;
        if (Kv::Ptr<iFile> in = OS()->fileSystem()->open(widePath, 1, 0, 1, 0)) {
            char back[sizeof payload] = {};
            ok = in->readAt(0, back, sizeof back) == sizeof back &&
                 std::memcmp(back, payload, sizeof payload) == 0 && in->size() == sizeof payload;
        }
    }
    std::remove(path.c_str());
    return ok;
}

int runChecks()
{
    struct Check {
        const char* what;
        bool (*run)();
    };
    const Check checks[] = {
        {"threads keep their full names", checkThreads},
        {"critical sections are re-entrant", checkLocks},
        {"files write and read back", checkFiles},
    };
    int failures = 0;
    std::printf("\nchecks\n");
    for (const Check& check : checks) {
        const bool ok = check.run();
        failures += ok ? 0 : 1;
        std::printf("  %-36s %s\n", check.what, ok ? "ok" : "FAILED");
    }
    return failures ? ExitFailure : ExitOk;
}

int runPlatform(const Invocation& invocation)
{
    std::printf("kvimage %s on the reference platform\n", imageDllVersionStr());
    std::printf("  %-22s %u\n", "processors", OS()->systemInfo()->processorCount());
    printFileSetting("settings file", "KV_SETTINGS_FILE", "(none)");
    printFileSetting("user settings file", "KV_USER_SETTINGS_FILE", "(none)");
    printFileSetting("log file", "KV_LOG_FILE", "(standard error)");

    std::printf("\nsettings\n");
    for (const Setting& setting : settings) {
        std::string name = setting.section ? std::string(setting.section) + "/" + setting.key
                                           : std::string(setting.key);
        std::string value = currentValue(setting);
        if (value.empty()) value = "(unset)";
        std::printf("  %-32s %-12s %s\n", name.c_str(), value.c_str(), sourceOf(setting));
    }

    std::printf("\ndisplay texts\n");
    for (int id : resourceIds) {
        const LightweightString<char> text = toUTF8(resourceStrW(id));
        std::printf("  %5d  %s\n", id, text.empty() ? "(none)" : text.c_str());
    }

    return invocation.has("check") ? runChecks() : ExitOk;
}

const Option platformOptions[] = {
    {"check", 'c', nullptr, "also exercise threads, locks and files; exit 1 if one fails"},
};

}  // namespace

const Verb platformVerb{
    "platform",
    "show the processors, settings and display texts the library sees",
    "[--check]",
    "Each setting is shown with its value and where it came from: the environment\n"
    "(KV_<key>, or KV_<section>_<key>), a settings file (KV_SETTINGS_FILE,\n"
    "KV_USER_SETTINGS_FILE), or the default.",
    platformOptions,
    0,
    0,
    runPlatform,
};

}  // namespace KvCli
