#pragma once
// Kv::Ptr: the two-word shared pointer (count address, object) with independent policies for
// where the count lives and how the object dies. All count changes go through OS().

#include <cstddef>
#include <type_traits>
#include <utility>

#include "ole/Kv/KvRefCount.h"
#include "ole/platform/os/OSCore.h"

namespace Kv {

// The count lives in the object: in its Kv::InternalRefCount base, or in any object that
// offers refCountAddress() (the header of a string's block).
struct InternalRefCountTraits {
    template <class T>
    static int* countFor(T* object) noexcept
    {
        return object->refCountAddress();
    }
    static void releaseCount(int*) noexcept {}
};

// The count is a heap block of its own, made when the first Kv::Ptr takes the raw pointer
// and freed just before the object is destroyed.
struct ExternalRefCountTraits {
    template <class T>
    static int* countFor(T*)
    {
        int* count = static_cast<int*>(::operator new(sizeof(int)));
        *count = 0;
        return count;
    }
    static void releaseCount(int* count) noexcept { ::operator delete(count); }
};

// The object dies through its deleting destructor.
struct DtorTraits {
    template <class T>
    static void destroy(T* object) noexcept
    {
        delete object;
    }
};

template <class T, class DtorPolicy = DtorTraits, class CountPolicy = InternalRefCountTraits>
class Ptr {
public:
    using element_type = T;

    constexpr Ptr() noexcept : count_(nullptr), object_(nullptr) {}
    constexpr Ptr(std::nullptr_t) noexcept : Ptr() {}

    // Takes a raw pointer; for an internally counted object that already has owners, this
    // simply becomes one more owner.
    explicit Ptr(T* object) : count_(nullptr), object_(object)
    {
        if (object_) {
            count_ = CountPolicy::countFor(object_);
            incRef();
        }
    }

    Ptr(const Ptr& other) noexcept : count_(other.count_), object_(other.object_) { incRef(); }
    Ptr(Ptr&& other) noexcept : count_(other.count_), object_(other.object_)
    {
        other.count_ = nullptr;
        other.object_ = nullptr;
    }

    // Sharing between pointer types: the count is the same block, only the object address
    // is converted.
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    Ptr(const Ptr<U, DtorPolicy, CountPolicy>& other) noexcept
        : count_(other.countAddress()), object_(other.get())
    {
        incRef();
    }

    ~Ptr() { decRef(); }

    // Assigning a Kv::Ptr to itself does nothing. Otherwise the old target is held until the
    // new one is in place, so that an object that owns its own replacement stays alive long
    // enough to hand it over.
    Ptr& operator=(const Ptr& other) noexcept
    {
        if (this == &other) return *this;
        Ptr old;
        old.count_ = count_;
        old.object_ = object_;
        count_ = other.count_;
        object_ = other.object_;
        incRef();
        return *this;  // `old` drops the previous ownership here
    }

    Ptr& operator=(Ptr&& other) noexcept
    {
        if (this == &other) return *this;
        Ptr old;
        old.count_ = count_;
        old.object_ = object_;
        count_ = other.count_;
        object_ = other.object_;
        other.count_ = nullptr;
        other.object_ = nullptr;
        return *this;
    }

    void incRef() noexcept
    {
        if (object_) Kv::Platform::incrementCount(count_);
    }

    // Drops one count. At zero the external count block goes first, then the object, and both
    // words are cleared. Above zero nothing else happens.
    void decRef() noexcept
    {
        if (!object_) return;
        if (Kv::Platform::decrementCount(count_) != 0) return;
        CountPolicy::releaseCount(count_);
        DtorPolicy::destroy(object_);
        count_ = nullptr;
        object_ = nullptr;
    }

    // Gives up this pointer's ownership and leaves it empty.
    void reset() noexcept
    {
        Ptr old(std::move(*this));
    }

    T* get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }
    int* countAddress() const noexcept { return count_; }
    int useCount() const noexcept { return count_ ? __atomic_load_n(count_, __ATOMIC_RELAXED) : 0; }

    friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.object_ == b.object_; }
    friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

private:
    int* count_;
    T* object_;
};

}  // namespace Kv
