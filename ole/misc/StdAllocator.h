#pragma once
// The allocator of every standard container of the library: blocks come from OS()->memory().

#include <cstddef>
#include <limits>
#include <new>

#include "ole/platform/os/OSCore.h"

template <class T>
class StdAllocator {
public:
    using value_type = T;

    constexpr StdAllocator() noexcept = default;
    template <class U>
    constexpr StdAllocator(const StdAllocator<U>&) noexcept
    {
    }

    T* allocate(std::size_t n)
    {
        if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(OS()->memory()->allocate(n * sizeof(T)));
    }
    void deallocate(T* p, std::size_t) noexcept { OS()->memory()->release(p); }

    template <class U>
    friend constexpr bool operator==(const StdAllocator&, const StdAllocator<U>&) noexcept
    {
        return true;
    }
};
