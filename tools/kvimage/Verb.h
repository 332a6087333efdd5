#pragma once
// The verbs of the kvimage tool. A verb is one row of the table in VerbTable.cpp: its name,
// a one-line summary for the verb list, its usage, the options it accepts and the function
// that does the work. Adding a verb: write verbs/<Name>Verb.cpp defining a `const Verb`, declare
// it below, and add it to the table.

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace KvCli {

enum ExitCode { ExitOk = 0, ExitFailure = 1, ExitUsage = 2 };

struct Option {
    const char* name;       // long name without the dashes: "output" for --output
    char shortName;         // 0 for none: 'o' for -o
    const char* valueName;  // null for a flag, else the placeholder shown in help: "FILE"
    const char* help;       // one line
};

class Invocation;

struct Verb {
    const char* name;
    const char* summary;      // one line, shown by `kvimage --help`
    const char* usage;        // what follows the verb name: "[options] <file>..."
    const char* description;  // more lines for `kvimage help <verb>`; may be null
    std::span<const Option> options;
    int minArguments;
    int maxArguments;         // -1: no limit
    int (*run)(const Invocation& invocation);
};

// The parsed command line of one verb.
class Invocation {
public:
    const Verb& verb() const { return *verb_; }
    bool has(std::string_view option) const;
    // The last value given for an option, or `fallback`.
    std::string value(std::string_view option, std::string_view fallback = {}) const;
    // Every value given for an option that may be repeated, in order.
    std::vector<std::string> values(std::string_view option) const;
    const std::vector<std::string>& arguments() const { return arguments_; }

private:
    friend class CommandLine;
    const Verb* verb_ = nullptr;
    std::vector<std::pair<std::string, std::string>> options_;  // name, value ("" for a flag)
    std::vector<std::string> arguments_;
};

// The verb table, in the order the help lists it.
std::span<const Verb* const> allVerbs();
const Verb* findVerb(std::string_view name);

// The verbs.
extern const Verb commandVerb;
extern const Verb convertVerb;
extern const Verb fieldsVerb;
extern const Verb formatVerb;
extern const Verb infoVerb;
extern const Verb helpVerb;
extern const Verb platformVerb;
extern const Verb weaveVerb;

}  // namespace KvCli
