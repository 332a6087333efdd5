#pragma once
// The assertion print: "assertion failed <condition> at <path>:<line>" on standard output.
// It never stops anything: execution goes on with the next statement.

#include "ole/platform/os/KvPlatformExport.h"

KV_EXPORT void kvAssertionFailed(const char* condition, const char* place);

#define KV_ASSERT_STR2(x) #x
#define KV_ASSERT_STR(x) KV_ASSERT_STR2(x)
#define KV_ASSERT(condition)                                                     \
    do {                                                                         \
        if (!(condition)) kvAssertionFailed(#condition, __FILE__ ":" KV_ASSERT_STR(__LINE__)); \
    } while (0)
