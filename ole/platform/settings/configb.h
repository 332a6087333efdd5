#pragma once
// configb: a small store of named texts, such as the attributes a file carries beside its
// picture (its reel name, its maker). Keys are compared exactly, case included, and the
// entries are kept in the order of their keys. A value; copying shares no state.

#include <vector>

#include "ole/misc/LightweightString.h"
#include "ole/platform/os/KvPlatformExport.h"

class KV_EXPORT configb {
public:
    struct Entry {
        LightweightString<char> key;
        LightweightString<char> value;
        // A note kept beside the value: what it means or where it came from, for a person
        // reading the attributes. Empty when none was given.
        LightweightString<char> extra;
    };
    using const_iterator = std::vector<Entry>::const_iterator;

    configb() = default;
    configb(configb const&) = default;
    configb(configb&&) noexcept = default;
    configb& operator=(configb const&) = default;
    configb& operator=(configb&&) noexcept = default;
    ~configb() = default;

    // Stores `value` under `key`, replacing what was there, note included. A null value is
    // stored as empty text; a null `extra` as no note. A null or empty key stores nothing and
    // gives false.
    bool set(char const* key, char const* value, char const* extra);

    // The value of the key; empty when it has none.
    LightweightString<char> get(char const* key) const;
    // True and `value` set when the key is there.
    bool get(char const* key, LightweightString<char>& value) const;
    LightweightString<char> get_extra(char const* key) const;

    bool has(char const* key) const;
    // True when the key was there.
    bool remove(char const* key);
    void clear() noexcept { entries_.clear(); }

    unsigned int size() const noexcept { return static_cast<unsigned int>(entries_.size()); }
    bool empty() const noexcept { return entries_.empty(); }
    std::vector<LightweightString<char>> keys() const;
    const_iterator begin() const noexcept { return entries_.begin(); }
    const_iterator end() const noexcept { return entries_.end(); }

    // Same keys, values and notes.
    friend KV_EXPORT bool operator==(configb const& a, configb const& b) noexcept;

private:
    const_iterator find(char const* key) const noexcept;

    std::vector<Entry> entries_;  // ordered by key
};
