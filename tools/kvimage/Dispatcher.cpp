#include "Dispatcher.h"

#include <algorithm>
#include <cstring>

#include "CommandLine.h"
#include "ole/image/KvImageVersion.h"

namespace KvCli {

namespace {

std::size_t nameColumn(std::span<const Verb* const> verbs)
{
    std::size_t width = 0;
    for (const Verb* verb : verbs) width = std::max(width, std::strlen(verb->name));
    return width + 2;
}

std::string optionLabel(const Option& option)
{
    std::string label = option.shortName ? std::string("-") + option.shortName + ", " : "    ";
    label += "--";
    label += option.name;
    if (option.valueName) {
        label += ' ';
        label += option.valueName;
    }
    return label;
}

}  // namespace

void printOverview(std::FILE* stream)
{
    std::fprintf(stream,
                 "usage: %s <verb> [options] [arguments]\n"
                 "       %s --help | -h | help [verb]\n"
                 "       %s --version\n\n"
                 "The picture library's tools: read, convert and inspect pictures and the\n"
                 "platform they run on.\n\nverbs:\n",
                 programName, programName, programName);
    const auto verbs = allVerbs();
    const int width = static_cast<int>(nameColumn(verbs));
    for (const Verb* verb : verbs) std::fprintf(stream, "  %-*s%s\n", width, verb->name, verb->summary);
    std::fprintf(stream, "\nRun '%s help <verb>' for a verb's options.\n", programName);
}

void printVerbHelp(const Verb& verb, std::FILE* stream)
{
    std::fprintf(stream, "usage: %s %s %s\n\n%s\n", programName, verb.name, verb.usage, verb.summary);
    if (verb.description) std::fprintf(stream, "\n%s\n", verb.description);
    std::fprintf(stream, "\noptions:\n");
    std::vector<std::pair<std::string, const char*>> rows;
    for (const Option& option : verb.options) rows.emplace_back(optionLabel(option), option.help);
    rows.emplace_back("-h, --help", "show this help");
    std::size_t width = 0;
    for (const auto& row : rows) width = std::max(width, row.first.size());
    for (const auto& row : rows)
        std::fprintf(stream, "  %-*s  %s\n", static_cast<int>(width), row.first.c_str(), row.second);
}

int usageError(const Verb* verb, const std::string& message)
{
    if (verb) {
        std::fprintf(stderr, "%s %s: %s\nRun '%s help %s' for its usage.\n", programName,
                     verb->name, message.c_str(), programName, verb->name);
    } else {
        std::fprintf(stderr, "%s: %s\nRun '%s --help' for the list of verbs.\n", programName,
                     message.c_str(), programName);
    }
    return ExitUsage;
}

int dispatch(const std::vector<std::string>& args)
{
    if (args.empty()) {
        printOverview(stderr);
        return ExitUsage;
    }

    const std::string& first = args.front();
    if (first == "--help" || first == "-h") {
        if (args.size() > 1) return usageError(nullptr, "unexpected argument '" + args[1] + "'");
        printOverview(stdout);
        return ExitOk;
    }
    if (first == "--version") {
        if (args.size() > 1) return usageError(nullptr, "unexpected argument '" + args[1] + "'");
        std::printf("%s\n", imageDllVersionStr());
        return ExitOk;
    }
    if (first.size() > 1 && first[0] == '-') return usageError(nullptr, "unknown option '" + first + "'");

    const Verb* verb = findVerb(first);
    if (!verb) return usageError(nullptr, "unknown verb '" + first + "'");

    Invocation invocation;
    std::string error;
    const std::vector<std::string> rest(args.begin() + 1, args.end());
    if (!CommandLine::parse(*verb, rest, invocation, error)) return usageError(verb, error);
    if (invocation.has("help")) {
        printVerbHelp(*verb, stdout);
        return ExitOk;
    }
    const int code = verb->run(invocation);
    std::fflush(stdout);
    return code;
}

namespace {

int runHelp(const Invocation& invocation)
{
    if (invocation.arguments().empty()) {
        printOverview(stdout);
        return ExitOk;
    }
    const Verb* verb = findVerb(invocation.arguments().front());
    if (!verb) return usageError(&helpVerb, "unknown verb '" + invocation.arguments().front() + "'");
    printVerbHelp(*verb, stdout);
    return ExitOk;
}

}  // namespace

const Verb helpVerb{
    "help", "list the verbs, or show one verb's usage and options", "[verb]", nullptr, {}, 0, 1,
    runHelp};

}  // namespace KvCli
