#include "ole/platform/commands/CommandRegistrar.h"

#include <map>
#include <mutex>
#include <string>

#include "ole/platform/os/StockServices.h"
#include "ole/platform/settings/KvLog.h"

namespace {

struct Registered {
    CommandRegistrar::Entry entry;
    const CommandRegistrar* owner = nullptr;
};

struct CommandTable {
    std::mutex lock;
    std::map<std::string, Registered> byName;
};

// Never destroyed: registrars of other modules go at their own unloading, in any order.
CommandTable& commands()
{
    static Kv::Platform::Immortal<CommandTable> table;
    return *table;
}

}  // namespace

CommandRegistrar::CommandRegistrar(const char* name, CommandFunction function,
                                   const UIString& displayName, const UIString& description,
                                   eCmdScope scope, const MapItem& mapItem)
    : name_(name ? name : "")
{
    CommandTable& table = commands();
    std::lock_guard guard(table.lock);
    Registered& slot = table.byName[name_.c_str()];
    if (slot.owner) Log("Command \"%s\" registered again; the later registration stands\n", name_.c_str());
    slot.entry.name = name_;
    slot.entry.function = function;
    slot.entry.displayName = displayName;
    slot.entry.description = description;
    slot.entry.scope = scope;
    slot.entry.mapItem = mapItem;
    slot.owner = this;
}

CommandRegistrar::~CommandRegistrar()
{
    CommandTable& table = commands();
    std::lock_guard guard(table.lock);
    auto it = table.byName.find(name_.c_str());
    if (it != table.byName.end() && it->second.owner == this) table.byName.erase(it);
}

bool CommandRegistrar::run(const char* name)
{
    Entry entry;
    if (!find(name, entry) || !entry.function) return false;
    entry.function();  // outside the lock: a command may register or run others
    return true;
}

std::vector<LightweightString<char>> CommandRegistrar::names()
{
    CommandTable& table = commands();
    std::lock_guard guard(table.lock);
    std::vector<LightweightString<char>> result;
    result.reserve(table.byName.size());
    for (const auto& [name, registered] : table.byName) result.push_back(registered.entry.name);
    return result;
}

bool CommandRegistrar::find(const char* name, Entry& entry)
{
    if (!name) return false;
    CommandTable& table = commands();
    std::lock_guard guard(table.lock);
    auto it = table.byName.find(name);
    if (it == table.byName.end()) return false;
    entry = it->second.entry;
    return true;
}
