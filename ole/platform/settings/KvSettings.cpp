// Settings: the environment, the user's settings file, values set during this run, the
// settings file, in that order. Files are read at each lookup: the library reads each of its
// settings once, at load, and a host or a test may change the environment between lookups.
//
// Settings files are INI: "[section]" lines, "key = value" lines, blank lines, and comment
// lines that start with '#' or ';'. Section and key names match without regard to case, as
// in the editor's registry; the first entry of a key counts. The environment's names are
// matched exactly, as the environment does.

#include "ole/platform/settings/KvSettings.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ole/platform/os/StockServices.h"
#include "ole/platform/settings/KvLog.h"

namespace Kv::Platform {
namespace {

constexpr std::string_view blanks = " \t\r\n\f\v";

std::string_view trim(std::string_view s)
{
    const auto first = s.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

bool sameName(std::string_view a, std::string_view b)
{
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (lower(a[i]) != lower(b[i])) return false;
    return true;
}

std::string_view orEmpty(const char* text)
{
    return text ? std::string_view(text) : std::string_view();
}

struct IniLine {
    enum Kind { Blank, Section, Entry, Bad };
    Kind kind = Blank;
    std::string_view name;  // of the section, or the key
    std::string_view value;
};

IniLine parseLine(std::string_view raw)
{
    const std::string_view line = trim(raw);
    if (line.empty() || line[0] == '#' || line[0] == ';') return {IniLine::Blank, {}, {}};
    if (line[0] == '[') {
        const auto close = line.find(']');
        if (close == std::string_view::npos) return {IniLine::Bad, {}, {}};
        const std::string_view rest = trim(line.substr(close + 1));
        const std::string_view name = trim(line.substr(1, close - 1));
        if (name.empty() || (!rest.empty() && rest[0] != '#' && rest[0] != ';')) return {IniLine::Bad, {}, {}};
        return {IniLine::Section, name, {}};
    }
    const auto equals = line.find('=');
    if (equals == std::string_view::npos) return {IniLine::Bad, {}, {}};
    const std::string_view key = trim(line.substr(0, equals));
    if (key.empty()) return {IniLine::Bad, {}, {}};
    return {IniLine::Entry, key, trim(line.substr(equals + 1))};
}

// The file's lines, without their line ends.
std::vector<std::string_view> splitLines(std::string_view content)
{
    std::vector<std::string_view> lines;
    while (!content.empty()) {
        const auto end = content.find('\n');
        lines.push_back(content.substr(0, end));
        if (end == std::string_view::npos) break;
        content.remove_prefix(end + 1);
    }
    return lines;
}

enum class FileRead { Read, Missing, Failed };

// Reads a whole file. A file that is not there is no error; any other failure is logged.
FileRead readFile(const char* path, std::string& content)
{
    char buffer[256];
    FILE* file = std::fopen(path, "rb");
    if (!file) {
        const int error = errno;
        if (error == ENOENT) return FileRead::Missing;
        Log("Cannot read settings file \"%s\": %s\n", path, describeError(error, buffer, sizeof buffer));
        return FileRead::Failed;
    }
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0) content.append(buffer, n);
    const bool failed = std::ferror(file);
    std::fclose(file);
    if (failed) {
        Log("Cannot read settings file \"%s\"\n", path);
        return FileRead::Failed;
    }
    return FileRead::Read;
}

void reportBadLine(const char* path, std::size_t number)
{
    Log("Settings file \"%s\", line %zu: not a section, a setting or a comment; skipped\n", path,
        number);
}

bool lookupInFile(const char* path, std::string_view section, std::string_view key,
                  LightweightString<char>& value)
{
    if (!path || !*path) return false;
    std::string content;
    if (readFile(path, content) != FileRead::Read) return false;
    std::string_view current;  // keys before the first section header have none
    bool found = false;
    const std::vector<std::string_view> lines = splitLines(content);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const IniLine line = parseLine(lines[i]);
        switch (line.kind) {
        case IniLine::Blank: break;
        case IniLine::Bad: reportBadLine(path, i + 1); break;
        case IniLine::Section: current = line.name; break;
        case IniLine::Entry:
            if (!found && sameName(current, section) && sameName(line.name, key)) {
                value = LightweightString<char>(line.value.data(), unsigned(line.value.size()));
                found = true;
            }
            break;
        }
    }
    return found;
}

// Names that a settings file cannot hold as written are refused rather than mangled.
bool writableName(std::string_view name, std::string_view forbidden)
{
    return trim(name) == name && name.find_first_of(forbidden) == std::string_view::npos;
}

constinit std::mutex userFileLock;  // one writer of the user's file at a time in this process

// Sets a key in the user's settings file, keeping every other line as it was: the key's line
// is rewritten in place, a new key goes after the last line of its section, a new section at
// the end of the file. The file is replaced whole through a temporary beside it.
bool writeUserSetting(std::string_view section, std::string_view key, std::string_view value)
{
    const char* path = std::getenv("KV_USER_SETTINGS_FILE");
    if (!path || !*path) {
        Log("User setting \"%.*s\" not saved: KV_USER_SETTINGS_FILE is not set\n", int(key.size()),
            key.data());
        return false;
    }
    if (key.empty() || !writableName(key, "=\r\n") || key.find_first_of("[#;") == 0 ||
        !writableName(section, "[]\r\n") || value.find_first_of("\r\n") != std::string_view::npos) {
        Log("User setting \"%.*s\" not saved: the name or value cannot be written to a settings file\n",
            int(key.size()), key.data());
        return false;
    }

    std::lock_guard lock(userFileLock);
    std::string content;
    if (readFile(path, content) == FileRead::Failed) return false;

    const std::vector<std::string_view> lines = splitLines(content);
    std::string_view current;
    bool sectionSeen = section.empty();
    std::size_t keyLine = std::string_view::npos;
    std::size_t insertAt = 0;  // behind the last line of the section
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const IniLine line = parseLine(lines[i]);
        if (line.kind == IniLine::Section) {
            current = line.name;
            if (sameName(current, section)) {
                sectionSeen = true;
                insertAt = i + 1;
            }
        } else if (line.kind == IniLine::Entry && sameName(current, section)) {
            insertAt = i + 1;
            if (keyLine == std::string_view::npos && sameName(line.name, key)) keyLine = i;
        }
    }

    std::string entry(key);
    entry += " = ";
    entry += value;
    std::string out;
    for (std::size_t i = 0; i <= lines.size(); ++i) {
        if (keyLine == std::string_view::npos && sectionSeen && i == insertAt) out.append(entry) += '\n';
        if (i == lines.size()) break;
        out.append(i == keyLine ? std::string_view(entry) : lines[i]) += '\n';
    }
    if (!sectionSeen) {
        if (!out.empty()) out += '\n';
        out.append("[").append(section).append("]\n").append(entry) += '\n';
    }

    const std::string temporary = std::string(path) + ".tmp";
    FILE* file = std::fopen(temporary.c_str(), "wb");
    bool ok = file && std::fwrite(out.data(), 1, out.size(), file) == out.size();
    if (file) ok = std::fclose(file) == 0 && ok;
    ok = ok && std::rename(temporary.c_str(), path) == 0;
    if (!ok) {
        char buffer[256];
        Log("User setting \"%.*s\" not saved to \"%s\": %s\n", int(key.size()), key.data(), path,
            describeError(errno, buffer, sizeof buffer));
        std::remove(temporary.c_str());
    }
    return ok;
}

// Values set at Global scope during this run. They stand above the settings file, which this
// process does not write.
class Overlay {
public:
    void set(std::string_view section, std::string_view key, std::string_view value)
    {
        std::lock_guard guard(lock_);
        values_[name(section, key)] = value;
    }

    bool get(std::string_view section, std::string_view key, LightweightString<char>& value)
    {
        std::lock_guard guard(lock_);
        const auto it = values_.find(name(section, key));
        if (it == values_.end()) return false;
        value = LightweightString<char>(it->second.data(), unsigned(it->second.size()));
        return true;
    }

private:
    // Case folded, like the names in the files.
    static std::string name(std::string_view section, std::string_view key)
    {
        std::string folded;
        for (char c : section) folded += lower(c);
        folded += '\n';
        for (char c : key) folded += lower(c);
        return folded;
    }

    std::mutex lock_;
    std::map<std::string, std::string> values_;
};

Overlay& overlay()
{
    static Immortal<Overlay> values;
    return *values;
}

class StockSettingsStore final : public iSettingsStore {
public:
    constexpr StockSettingsStore() = default;

    bool lookup(Scope scope, const char* section, const char* key, LightweightString<char>& value) override
    {
        const std::string_view s = orEmpty(section);
        const std::string_view k = orEmpty(key);
        if (k.empty()) return false;

        std::string variable = "KV_";
        if (!s.empty()) variable.append(s) += '_';
        variable.append(k);
        if (const char* text = std::getenv(variable.c_str())) {
            value = LightweightString<char>(text);
            return true;
        }
        if (scope == User && lookupInFile(std::getenv("KV_USER_SETTINGS_FILE"), s, k, value)) return true;
        if (overlay().get(s, k, value)) return true;
        return lookupInFile(std::getenv("KV_SETTINGS_FILE"), s, k, value);
    }

    bool store(Scope scope, const char* section, const char* key, const char* value) override
    {
        const std::string_view k = orEmpty(key);
        if (k.empty()) return false;
        if (scope == User) return writeUserSetting(orEmpty(section), k, orEmpty(value));
        overlay().set(orEmpty(section), k, orEmpty(value));
        return true;
    }
};

constinit StockSettingsStore stockSettingsStore;
constinit std::atomic<iSettingsStore*> installedStore{&stockSettingsStore};

// Whole numbers only: an optional sign, then decimal digits or 0x and hexadecimal ones,
// within the range of int.
std::optional<int> parseInt(std::string_view text)
{
    text = trim(text);
    bool negative = false;
    if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
        negative = text[0] == '-';
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty()) return std::nullopt;
    unsigned long long magnitude = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    if (magnitude > (negative ? 0x80000000ull : 0x7FFFFFFFull)) return std::nullopt;
    return int(negative ? -static_cast<long long>(magnitude) : static_cast<long long>(magnitude));
}

std::optional<bool> parseBool(std::string_view text)
{
    text = trim(text);
    for (std::string_view yes : {"1", "true", "yes", "on"})
        if (sameName(text, yes)) return true;
    for (std::string_view no : {"0", "false", "no", "off"})
        if (sameName(text, no)) return false;
    return std::nullopt;
}

}  // namespace

iSettingsStore* setSettingsStore(iSettingsStore* store) noexcept
{
    return installedStore.exchange(store ? store : &stockSettingsStore, std::memory_order_acq_rel);
}

iSettingsStore* settingsStore() noexcept
{
    return installedStore.load(std::memory_order_acquire);
}

}  // namespace Kv::Platform

int config_int(const char* key, int defaultValue)
{
    return GlobalConfig().getValue(key, defaultValue, nullptr);
}

int RegistryConfig::getValue(const char* key, int defaultValue, const char* section) const
{
    LightweightString<char> text;
    if (!Kv::Platform::settingsStore()->lookup(scope_, section, key, text)) return defaultValue;
    return Kv::Platform::parseInt(text.c_str()).value_or(defaultValue);
}

bool RegistryConfig::getValue(const char* key, bool defaultValue, const char* section) const
{
    LightweightString<char> text;
    if (!Kv::Platform::settingsStore()->lookup(scope_, section, key, text)) return defaultValue;
    return Kv::Platform::parseBool(text.c_str()).value_or(defaultValue);
}

LightweightString<char> RegistryConfig::getValue(const char* key, const char* defaultValue,
                                                 const char* section) const
{
    LightweightString<char> text;
    if (!Kv::Platform::settingsStore()->lookup(scope_, section, key, text)) return defaultValue;
    return text;
}

bool RegistryConfig::setValue(const char* key, int value, const char* section)
{
    char text[16];
    const auto result = std::to_chars(text, text + sizeof text - 1, value);
    *result.ptr = '\0';
    return setValue(key, static_cast<const char*>(text), section);
}

// Written as 1 or 0, which config_int reads as well.
bool RegistryConfig::setValue(const char* key, bool value, const char* section)
{
    return setValue(key, value ? "1" : "0", section);
}

bool RegistryConfig::setValue(const char* key, const char* value, const char* section)
{
    return Kv::Platform::settingsStore()->store(scope_, section, key, value);
}

RegistryConfig& GlobalConfig()
{
    static RegistryConfig config(iSettingsStore::Global);
    return config;
}

RegistryConfig& UserConfig()
{
    static RegistryConfig config(iSettingsStore::User);
    return config;
}
