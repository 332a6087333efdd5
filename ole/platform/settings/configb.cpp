// configb: named texts, kept in key order.

#include "ole/platform/settings/configb.h"

#include <algorithm>
#include <cstring>

namespace {

bool keyBefore(configb::Entry const& entry, char const* key) noexcept
{
    return std::strcmp(entry.key.c_str(), key) < 0;
}

}  // namespace

configb::const_iterator configb::find(char const* key) const noexcept
{
    if (!key || !*key) return entries_.end();
    const auto at = std::lower_bound(entries_.begin(), entries_.end(), key, keyBefore);
    return at != entries_.end() && at->key == key ? at : entries_.end();
}

bool configb::set(char const* key, char const* value, char const* extra)
{
    if (!key || !*key) return false;
    Entry entry{key, value, extra};  // made first: a failure leaves the store as it was
    const auto at = std::lower_bound(entries_.begin(), entries_.end(), key, keyBefore);
    if (at != entries_.end() && at->key == key)
        entries_[std::size_t(at - entries_.begin())] = std::move(entry);
    else
        entries_.insert(at, std::move(entry));
    return true;
}

LightweightString<char> configb::get(char const* key) const
{
    const auto at = find(key);
    return at != entries_.end() ? at->value : LightweightString<char>();
}

bool configb::get(char const* key, LightweightString<char>& value) const
{
    const auto at = find(key);
    if (at == entries_.end()) return false;
    value = at->value;
    return true;
}

LightweightString<char> configb::get_extra(char const* key) const
{
    const auto at = find(key);
    return at != entries_.end() ? at->extra : LightweightString<char>();
}

bool configb::has(char const* key) const { return find(key) != entries_.end(); }

bool configb::remove(char const* key)
{
    const auto at = find(key);
    if (at == entries_.end()) return false;
    entries_.erase(at);
    return true;
}

std::vector<LightweightString<char>> configb::keys() const
{
    std::vector<LightweightString<char>> result;
    result.reserve(entries_.size());
    for (Entry const& entry : entries_) result.push_back(entry.key);
    return result;
}

bool operator==(configb const& a, configb const& b) noexcept
{
    return std::equal(a.entries_.begin(), a.entries_.end(), b.entries_.begin(), b.entries_.end(),
                      [](configb::Entry const& x, configb::Entry const& y) {
                          return x.key == y.key && x.value == y.value && x.extra == y.extra;
                      });
}
