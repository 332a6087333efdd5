#include "CommandLine.h"

#include <algorithm>

namespace KvCli {

bool Invocation::has(std::string_view option) const
{
    return std::any_of(options_.begin(), options_.end(),
                       [&](const auto& entry) { return entry.first == option; });
}

std::string Invocation::value(std::string_view option, std::string_view fallback) const
{
    for (auto it = options_.rbegin(); it != options_.rend(); ++it)
        if (it->first == option) return it->second;
    return std::string(fallback);
}

std::vector<std::string> Invocation::values(std::string_view option) const
{
    std::vector<std::string> result;
    for (const auto& entry : options_)
        if (entry.first == option) result.push_back(entry.second);
    return result;
}

namespace {

const Option helpOption{"help", 'h', nullptr, "show this verb's usage and options"};

const Option* findLong(const Verb& verb, std::string_view name)
{
    if (name == helpOption.name) return &helpOption;
    for (const Option& option : verb.options)
        if (name == option.name) return &option;
    return nullptr;
}

const Option* findShort(const Verb& verb, char name)
{
    if (name == helpOption.shortName) return &helpOption;
    for (const Option& option : verb.options)
        if (option.shortName != 0 && option.shortName == name) return &option;
    return nullptr;
}

}  // namespace

bool CommandLine::parse(const Verb& verb, const std::vector<std::string>& args,
                        Invocation& invocation, std::string& error)
{
    invocation = Invocation();
    invocation.verb_ = &verb;
    bool optionsEnded = false;

    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
            invocation.arguments_.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }

        const Option* option = nullptr;
        std::string shown;  // the option as the user wrote it, for messages
        std::string inlineValue;
        bool hasInlineValue = false;
        if (arg[1] == '-') {
            const std::size_t equals = arg.find('=');
            const std::string name = arg.substr(2, equals == std::string::npos ? std::string::npos
                                                                                : equals - 2);
            shown = "--" + name;
            option = findLong(verb, name);
            if (equals != std::string::npos) {
                inlineValue = arg.substr(equals + 1);
                hasInlineValue = true;
            }
        } else {
            shown = arg.substr(0, 2);
            option = findShort(verb, arg[1]);
            if (arg.size() > 2) {  // -ovalue
                inlineValue = arg.substr(2);
                hasInlineValue = true;
            }
        }
        if (!option) {
            error = "unknown option '" + shown + "'";
            return false;
        }

        if (!option->valueName) {
            if (hasInlineValue) {
                error = "option '" + shown + "' takes no value";
                return false;
            }
            invocation.options_.emplace_back(option->name, std::string());
            continue;
        }
        if (!hasInlineValue) {
            if (i + 1 >= args.size()) {
                error = "option '" + shown + "' needs a value (" + option->valueName + ")";
                return false;
            }
            inlineValue = args[++i];
        }
        invocation.options_.emplace_back(option->name, inlineValue);
    }

    if (invocation.has("help")) return true;  // the count of arguments does not matter then

    const int count = static_cast<int>(invocation.arguments_.size());
    if (count < verb.minArguments) {
        error = count == 0 ? "missing arguments" : "too few arguments";
        return false;
    }
    if (verb.maxArguments >= 0 && count > verb.maxArguments) {
        error = "unexpected argument '" + invocation.arguments_[verb.maxArguments] + "'";
        return false;
    }
    return true;
}

}  // namespace KvCli
