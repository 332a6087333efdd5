#pragma once
// Kv::Rectangle<T>: two corners, (x1, y1) and (x2, y2).

namespace Kv {

template <class T>
struct Rectangle {
    T x1 = T();
    T y1 = T();
    T x2 = T();
    T y2 = T();

    constexpr Rectangle() noexcept = default;
    constexpr Rectangle(T x1_, T y1_, T x2_, T y2_) noexcept : x1(x1_), y1(y1_), x2(x2_), y2(y2_) {}

    friend constexpr bool operator==(const Rectangle& a, const Rectangle& b) noexcept
    {
        return a.x1 == b.x1 && a.y1 == b.y1 && a.x2 == b.x2 && a.y2 == b.y2;
    }
};

}  // namespace Kv
