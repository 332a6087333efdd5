#pragma once
// Display texts of the resource library, by number. A text can be overridden by the setting
// of its number in section "Resources" (for example KV_Resources_10135).

#include "ole/misc/LightweightString.h"
#include "ole/platform/os/KvPlatformExport.h"

class iResourceTable {
public:
    // True and `text` set when the table has the number.
    virtual bool lookup(int id, LightweightString<wchar_t>& text) = 0;

protected:
    ~iResourceTable() = default;
};

namespace Kv::Platform {
KV_EXPORT iResourceTable* setResourceTable(iResourceTable* table) noexcept;
}  // namespace Kv::Platform

// The text of a number; the null string for an unknown one.
KV_EXPORT LightweightString<wchar_t> resourceStrW(int id);
