#pragma once
// Named commands that modules register as they load, for the host's menus and key maps and
// for the kvimage tool: a registrar object at namespace scope adds its command, and its
// destructor (the module unloading) takes it away again.
//
//     static CommandRegistrar reg("Templated Pixels Test", &ImageConverter::templatedPixelsTest,
//                                 UIString("Templated pixels test"), UIString("..."),
//                                 eCmdScopeDiagnostic, MapItem());
//     CommandRegistrar::run("Templated Pixels Test");

#include <vector>

#include "ole/misc/LightweightString.h"
#include "ole/platform/os/KvPlatformExport.h"

// A text shown to the user: a menu entry or a tool tip.
class KV_EXPORT UIString {
public:
    UIString() = default;
    UIString(const char* text) : text_(text) {}  // NOLINT: a literal is a UIString
    const char* c_str() const { return text_.c_str(); }
    bool empty() const { return text_.empty(); }

private:
    LightweightString<char> text_;
};

// Where a command makes sense.
enum eCmdScope {
    eCmdScopeGlobal = 0,      // anywhere in the editor
    eCmdScopeProject = 1,     // with a project open
    eCmdScopeDiagnostic = 2,  // for developers and support; in no menu
};

// The key that runs a command by default; key 0 for none.
struct MapItem {
    int key = 0;
    unsigned int modifiers = 0;

    MapItem() = default;
    MapItem(int key_, unsigned int modifiers_) : key(key_), modifiers(modifiers_) {}
};

using CommandFunction = void (*)();

class KV_EXPORT CommandRegistrar {
public:
    // Registers `function` under `name`. A later registration of the same name takes its place
    // (and says so in the log).
    CommandRegistrar(const char* name, CommandFunction function, const UIString& displayName,
                     const UIString& description, eCmdScope scope, const MapItem& mapItem);
    // Unregisters the command, if it is still this registrar's.
    ~CommandRegistrar();
    CommandRegistrar(const CommandRegistrar&) = delete;
    CommandRegistrar& operator=(const CommandRegistrar&) = delete;

    struct Entry {
        LightweightString<char> name;
        CommandFunction function = nullptr;
        UIString displayName;
        UIString description;
        eCmdScope scope = eCmdScopeGlobal;
        MapItem mapItem;
    };

    // Runs the command of that name on the calling thread; false for a name nobody
    // registered. Whatever the command throws reaches the caller.
    static bool run(const char* name);
    // The registered names, in alphabetical order.
    static std::vector<LightweightString<char>> names();
    // The registration of a name; false for an unknown one.
    static bool find(const char* name, Entry& entry);

private:
    LightweightString<char> name_;
};
