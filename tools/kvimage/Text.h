#pragma once
// printf into a std::string, for the lines the verbs print.

#include <cstdarg>
#include <cstdio>
#include <string>

namespace KvCli {

inline std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
inline std::string format(const char* pattern, ...)
{
    char text[512];
    va_list args;
    va_start(args, pattern);
    std::vsnprintf(text, sizeof text, pattern, args);
    va_end(args);
    return text;
}

}  // namespace KvCli
