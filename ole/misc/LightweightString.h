#pragma once
// LightweightString<T>: reference-counted text in one block (header, then the characters),
// shared on copy and changed in place only while it has a single owner. An empty string is
// always the null string, which owns no block and reads as "".

#include <bit>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>
#include <string>

#include "ole/Kv/KvPtr.h"
#include "ole/platform/os/OSCore.h"

namespace Kv::Detail {

inline int compareText(const char* a, const char* b) noexcept { return std::strcmp(a, b); }
inline int compareText(const wchar_t* a, const wchar_t* b) noexcept { return std::wcscmp(a, b); }

template <class T>
inline unsigned int textLength(const T* text) noexcept
{
    return static_cast<unsigned int>(std::char_traits<T>::length(text));
}

}  // namespace Kv::Detail

template <class T>
class LightweightString {
public:
    // One heap block: this header, then `capacity` characters.
    struct Impl {
        T* data;
        std::uint32_t length;
        std::uint32_t capacity;
        int refCount;

        int* refCountAddress() noexcept { return &refCount; }

        // The block has no destructor: it goes straight back to the memory service.
        struct DtorTraits {
            static void destroy(Impl* impl) noexcept { OS()->memory()->release(impl); }
        };
    };
    using ImplPtr = Kv::Ptr<Impl, typename Impl::DtorTraits, Kv::InternalRefCountTraits>;

    LightweightString() noexcept = default;

    LightweightString(const T* text)
    {
        if (text && *text) setNew(text, Kv::Detail::textLength(text));
    }

    LightweightString(const T* text, unsigned int length)
    {
        if (text && length) setNew(text, length);
    }

    LightweightString(const LightweightString&) noexcept = default;
    LightweightString(LightweightString&&) noexcept = default;
    LightweightString& operator=(const LightweightString&) noexcept = default;
    LightweightString& operator=(LightweightString&&) noexcept = default;
    LightweightString& operator=(const T* text)
    {
        assign(text);
        return *this;
    }

    // Reading.
    const T* c_str() const noexcept { return impl_ ? impl_->data : emptyText(); }
    unsigned int size() const noexcept { return impl_ ? impl_->length : 0; }
    unsigned int length() const noexcept { return size(); }
    unsigned int capacity() const noexcept { return impl_ ? impl_->capacity : 0; }
    bool empty() const noexcept { return !impl_; }
    bool isNull() const noexcept { return !impl_; }
    const T& operator[](unsigned int i) const noexcept { return c_str()[i]; }
    const Impl* impl() const noexcept { return impl_.get(); }
    int useCount() const noexcept { return impl_.useCount(); }

    // The text for writing, null for the null string. Only for a string that this caller owns
    // alone, as resizeFor and createImpl leave it; writing into a shared string changes it for
    // every sharer.
    T* buffer() noexcept { return impl_ ? impl_->data : nullptr; }

    // Comes out exclusively owned with length n (the null string for 0). In place when the
    // rule allows, keeping the characters below n; otherwise a new block whose text is
    // undefined apart from its terminator, since the caller is about to fill it.
    void resizeFor(unsigned int n)
    {
        if (n == 0) {
            impl_.reset();
            return;
        }
        if (canChangeInPlace(n)) {
            impl_->data[n] = T(0);
            impl_->length = n;
            return;
        }
        impl_ = makeImpl(n, capacityFor(n));
    }

    // A string of length n with uninitialised text; exactly n + 1 characters of room unless
    // roundUp asks for the power-of-two rule.
    static LightweightString createImpl(unsigned int n, bool roundUp)
    {
        LightweightString s;
        if (n == 0) return s;
        s.impl_ = makeImpl(n, roundUp ? capacityFor(n) : exactCapacityFor(n));
        return s;
    }

    static LightweightString join(const T* a, unsigned int lenA, const T* b, unsigned int lenB)
    {
        LightweightString s;
        const std::uint64_t total = std::uint64_t(lenA) + lenB;
        if (total == 0) return s;
        const unsigned int n = checkedLength(total);
        s.impl_ = makeImpl(n, capacityFor(n));
        T* out = s.impl_->data;
        // A missing source still counts its length; its room is zeroed rather than left with
        // whatever the block held before.
        if (a && lenA)
            std::memcpy(out, a, std::size_t(lenA) * sizeof(T));
        else if (lenA)
            std::memset(out, 0, std::size_t(lenA) * sizeof(T));
        if (b && lenB)
            std::memcpy(out + lenA, b, std::size_t(lenB) * sizeof(T));
        else if (lenB)
            std::memset(out + lenA, 0, std::size_t(lenB) * sizeof(T));
        return s;
    }

    void assign(const T* text)
    {
        if (!text || !*text) {
            impl_.reset();
            return;
        }
        assign(text, Kv::Detail::textLength(text));
    }

    void assign(const T* text, unsigned int n)
    {
        if (!text || n == 0) {
            impl_.reset();
            return;
        }
        if (canChangeInPlace(n)) {
            // The source may lie inside this very text.
            std::memmove(impl_->data, text, std::size_t(n) * sizeof(T));
            impl_->data[n] = T(0);
            impl_->length = n;
            return;
        }
        LightweightString fresh(text, n);  // made before the old block goes: text may be in it
        impl_ = std::move(fresh.impl_);
    }

    LightweightString& append(const T* text, unsigned int n)
    {
        if (n == 0 || !text) return *this;
        if (!impl_) {
            setNew(text, n);
            return *this;
        }
        const unsigned int oldLength = impl_->length;
        const unsigned int newLength = checkedLength(std::uint64_t(oldLength) + n);
        if (canChangeInPlace(newLength)) {
            // Appending a string to itself reads from its own text; memmove keeps that right
            // whatever the overlap.
            T* end = impl_->data + oldLength;
            const auto at = reinterpret_cast<std::uintptr_t>(text);
            const auto own = reinterpret_cast<std::uintptr_t>(impl_->data);
            if (at >= own && at < own + std::uintptr_t(impl_->capacity) * sizeof(T))
                std::memmove(end, text, std::size_t(n) * sizeof(T));
            else
                std::memcpy(end, text, std::size_t(n) * sizeof(T));
            impl_->data[newLength] = T(0);
            impl_->length = newLength;
            return *this;
        }
        LightweightString joined = join(impl_->data, oldLength, text, n);
        impl_ = std::move(joined.impl_);
        return *this;
    }

    LightweightString& operator+=(const T* text)
    {
        if (text) append(text, Kv::Detail::textLength(text));
        return *this;
    }
    LightweightString& operator+=(const LightweightString& other)
    {
        // Take a hold first: `other` may be this string, whose block append may replace.
        const LightweightString keep(other);
        return append(keep.c_str(), keep.size());
    }

    friend bool operator==(const LightweightString& a, const LightweightString& b) noexcept
    {
        if (a.impl_.get() == b.impl_.get()) return true;
        if (a.empty() && b.empty()) return true;
        return Kv::Detail::compareText(a.c_str(), b.c_str()) == 0;
    }
    friend bool operator==(const LightweightString& a, const T* b) noexcept
    {
        return Kv::Detail::compareText(a.c_str(), b ? b : emptyText()) == 0;
    }
    friend bool operator!=(const LightweightString& a, const LightweightString& b) noexcept
    {
        return !(a == b);
    }
    friend bool operator!=(const LightweightString& a, const T* b) noexcept { return !(a == b); }
    friend bool operator<(const LightweightString& a, const LightweightString& b) noexcept
    {
        if (a.impl_.get() == b.impl_.get()) return false;
        return Kv::Detail::compareText(a.c_str(), b.c_str()) < 0;
    }

    // The capacity rule: the smallest power of two greater than n, so that there is always
    // room for the terminator and appends reallocate only when they cross a power of two.
    static std::uint32_t capacityFor(unsigned int n)
    {
        if (n >= 0x80000000u) return exactCapacityFor(n);  // no 32-bit power of two above n
        return std::bit_ceil(std::uint32_t(n) + 1u);
    }

private:
    static const T* emptyText() noexcept
    {
        static const T empty[1] = {T(0)};
        return empty;
    }

    static std::uint32_t exactCapacityFor(unsigned int n)
    {
        return checkedLength(std::uint64_t(n) + 1u);
    }

    // A length that a 32-bit field cannot hold is memory the service cannot give.
    static unsigned int checkedLength(std::uint64_t n)
    {
        if (n > 0xFFFFFFFEu) throw std::bad_alloc();
        return static_cast<unsigned int>(n);
    }

    bool canChangeInPlace(unsigned int newLength) const noexcept
    {
        return impl_ && __atomic_load_n(&impl_->refCount, __ATOMIC_RELAXED) == 1 &&
               newLength < impl_->capacity;
    }

    static ImplPtr makeImpl(unsigned int length, std::uint32_t capacity)
    {
        void* block = OS()->memory()->allocate(sizeof(Impl) + std::size_t(capacity) * sizeof(T));
        Impl* impl = static_cast<Impl*>(block);
        impl->data = reinterpret_cast<T*>(static_cast<char*>(block) + sizeof(Impl));
        impl->length = length;
        impl->capacity = capacity;
        impl->refCount = 0;
        impl->data[length] = T(0);
        return ImplPtr(impl);
    }

    void setNew(const T* text, unsigned int n)
    {
        ImplPtr fresh = makeImpl(n, capacityFor(n));
        std::memcpy(fresh->data, text, std::size_t(n) * sizeof(T));
        impl_ = std::move(fresh);
    }

    ImplPtr impl_;
};

// Removes leading blanks (character 32 only); a string of blanks alone becomes the null string.
template <class S>
void trimLeadingSpaces(S& s)
{
    const unsigned int n = s.size();
    const auto* text = s.c_str();
    unsigned int skip = 0;
    while (skip < n && text[skip] == 32) ++skip;
    if (skip == 0) return;
    s.assign(text + skip, n - skip);
}

namespace StringHelpers {

// Bounded copy of wide text into a buffer of `room` characters: copies up to the source's
// terminator or room - 1 characters, always terminates when room > 0, and returns the number
// of characters copied.
KV_EXPORT unsigned int copy(wchar_t* dst, const wchar_t* src, unsigned int room);

}  // namespace StringHelpers
