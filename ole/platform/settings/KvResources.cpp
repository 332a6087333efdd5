// Display texts of the resource library.

#include "ole/platform/settings/KvResources.h"

#include <atomic>
#include <cstdio>

#include "ole/platform/settings/KvSettings.h"
#include "ole/platform/text/KvText.h"

namespace Kv::Platform {
namespace {

struct ResourceText {
    int id;
    const wchar_t* text;
};

// The texts the library shows, by number.
constexpr ResourceText stockTexts[] = {
    {10087, L"Film Formats"},
    {10135, L"DPX"},
    {10136, L"Cineon"},
    {12207, L"Progressive"},
    {13040, L"Interlaced Upper Field First"},
    {13041, L"Interlaced Lower Field First"},
};

class StockResourceTable final : public iResourceTable {
public:
    constexpr StockResourceTable() = default;

    bool lookup(int id, LightweightString<wchar_t>& text) override
    {
        for (const ResourceText& entry : stockTexts) {
            if (entry.id == id) {
                text = entry.text;
                return true;
            }
        }
        return false;
    }
};

constinit StockResourceTable stockResourceTable;
constinit std::atomic<iResourceTable*> installedTable{&stockResourceTable};

}  // namespace

iResourceTable* setResourceTable(iResourceTable* table) noexcept
{
    return installedTable.exchange(table ? table : &stockResourceTable, std::memory_order_acq_rel);
}

}  // namespace Kv::Platform

// A setting of the number in section "Resources" stands above the table, so that a text can be
// changed without a new resource library.
LightweightString<wchar_t> resourceStrW(int id)
{
    char key[16];
    std::snprintf(key, sizeof key, "%d", id);
    LightweightString<char> setting;
    if (Kv::Platform::settingsStore()->lookup(iSettingsStore::Global, "Resources", key, setting))
        return fromUTF8(setting);
    LightweightString<wchar_t> text;
    if (Kv::Platform::installedTable.load(std::memory_order_acquire)->lookup(id, text)) return text;
    return {};
}
