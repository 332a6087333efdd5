#pragma once
// The top of the kvimage tool: global options, verb lookup, help and exit codes.

#include <cstdio>
#include <string>
#include <vector>

#include "Verb.h"

namespace KvCli {

inline constexpr const char* programName = "kvimage";

// Runs the tool on its arguments (without the program name). Returns the exit code.
int dispatch(const std::vector<std::string>& args);

void printOverview(std::FILE* stream);
void printVerbHelp(const Verb& verb, std::FILE* stream);

// "kvimage <verb>: <message>" (or "kvimage: <message>" without a verb) on standard error,
// with a pointer to the help; returns ExitUsage.
int usageError(const Verb* verb, const std::string& message);

}  // namespace KvCli
