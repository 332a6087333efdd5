#pragma once
// Symbols of the reference platform and of the library are exported with default visibility;
// the macro marks what a host links against, and keeps one place to change it.
#define KV_EXPORT __attribute__((visibility("default")))
