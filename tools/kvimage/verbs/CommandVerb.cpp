// kvimage command: runs a command that the library registered by name, as the editor's menus
// and key maps would, or lists them.

#include <cstdio>
#include <exception>
#include <string>

#include "../Verb.h"
#include "ole/Kv/KvException.h"
#include "ole/platform/commands/CommandRegistrar.h"

namespace KvCli {

namespace {

int runCommand(const Invocation& invocation)
{
    if (invocation.arguments().empty()) {
        for (const auto& name : CommandRegistrar::names()) {
            CommandRegistrar::Entry entry;
            CommandRegistrar::find(name.c_str(), entry);
            std::printf("%-28s %s\n", name.c_str(), entry.description.empty() ? entry.displayName.c_str() : entry.description.c_str());
        }
        return ExitOk;
    }
    const std::string& name = invocation.arguments()[0];
    try {
        if (!CommandRegistrar::run(name.c_str())) {
            std::fprintf(stderr, "kvimage command: no command is registered as '%s' (kvimage command lists them)\n",
                         name.c_str());
            return ExitUsage;
        }
    } catch (const Kv::Exception::Base& e) {
        std::fprintf(stderr, "kvimage command: '%s' failed: %s: %s (%s:%d)\n", name.c_str(), e.kind, e.message,
                     e.file, e.line);
        return ExitFailure;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kvimage command: '%s' failed: %s\n", name.c_str(), e.what());
        return ExitFailure;
    }
    std::printf("%s: done\n", name.c_str());
    return ExitOk;
}

}  // namespace

const Verb commandVerb = {
    "command",
    "run a command the library registered, or list them",
    "[NAME]",
    "NAME is the command's registered name, quoted when it has blanks:\n"
    "  kvimage command \"Templated Pixels Test\"\n"
    "Without NAME, lists the registered commands.",
    {},
    0,
    1,
    runCommand,
};

}  // namespace KvCli
