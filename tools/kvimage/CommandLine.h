#pragma once
// Parsing of a verb's arguments: long options (--name, --name=value, --name value), short
// options (-x, -x value), "--" to end options, and a lone "-" as an argument.

#include <string>

#include "Verb.h"

namespace KvCli {

class CommandLine {
public:
    // Parses `args` against the options of `verb`. On a usage error returns false with the
    // reason in `error` (without the program name). `--help` and `-h` are accepted by every
    // verb and come back as the flag "help".
    static bool parse(const Verb& verb, const std::vector<std::string>& args,
                      Invocation& invocation, std::string& error);
};

}  // namespace KvCli
