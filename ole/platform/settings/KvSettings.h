#pragma once
// Settings. A key is looked up, in this order: in the environment as KV_<key> (a sectioned key
// as KV_<section>_<key>); for UserConfig(), in the file named by KV_USER_SETTINGS_FILE; in the
// file named by KV_SETTINGS_FILE (INI: [section], key = value); then it takes its default.
// UserConfig() writes go to KV_USER_SETTINGS_FILE. A file that does not parse is reported
// through Log, line by line, and its good lines still count.

#include "ole/misc/LightweightString.h"
#include "ole/platform/os/KvPlatformExport.h"

// Where settings come from; replaceable by a host or a test.
class iSettingsStore {
public:
    enum Scope { Global = 0, User = 1 };
    // True and `value` set when the key is found at that scope.
    virtual bool lookup(Scope scope, const char* section, const char* key,
                        LightweightString<char>& value) = 0;
    virtual bool store(Scope scope, const char* section, const char* key, const char* value) = 0;

protected:
    ~iSettingsStore() = default;
};

namespace Kv::Platform {
KV_EXPORT iSettingsStore* setSettingsStore(iSettingsStore* store) noexcept;
KV_EXPORT iSettingsStore* settingsStore() noexcept;
}  // namespace Kv::Platform

// A named integer from the host's configuration, or the default. A value that is not a whole
// number gives the default.
KV_EXPORT int config_int(const char* key, int defaultValue);

class KV_EXPORT RegistryConfig {
public:
    explicit RegistryConfig(iSettingsStore::Scope scope) noexcept : scope_(scope) {}

    // The section may be null or "" for a key without one.
    int getValue(const char* key, int defaultValue, const char* section) const;
    bool getValue(const char* key, bool defaultValue, const char* section) const;
    LightweightString<char> getValue(const char* key, const char* defaultValue,
                                     const char* section) const;

    bool setValue(const char* key, int value, const char* section);
    bool setValue(const char* key, bool value, const char* section);
    bool setValue(const char* key, const char* value, const char* section);

private:
    iSettingsStore::Scope scope_;
};

KV_EXPORT RegistryConfig& GlobalConfig();
KV_EXPORT RegistryConfig& UserConfig();
