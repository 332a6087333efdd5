#pragma once
// The library's rectangle: y runs downward; right and bottom are exclusive by use.

#include <algorithm>

struct TopDownRect {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    constexpr TopDownRect() noexcept = default;
    constexpr TopDownRect(int left_, int top_, int right_, int bottom_) noexcept
        : left(left_), top(top_), right(right_), bottom(bottom_)
    {
    }
    constexpr TopDownRect(const TopDownRect&) noexcept = default;
    constexpr TopDownRect& operator=(const TopDownRect&) noexcept = default;

    // All zero when they are apart; rectangles that touch meet in one of no size.
    static constexpr TopDownRect getIntersection(const TopDownRect& a, const TopDownRect& b) noexcept
    {
        if (a.left > b.right || a.top > b.bottom || a.right < b.left || a.bottom < b.top) return {};
        return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                std::min(a.bottom, b.bottom)};
    }
    static constexpr TopDownRect getUnion(const TopDownRect& a, const TopDownRect& b) noexcept
    {
        return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right),
                std::max(a.bottom, b.bottom)};
    }
    constexpr bool isEmpty() const noexcept { return !(left < right) || !(top < bottom); }
    constexpr void validate() noexcept
    {
        if (left > right) std::swap(left, right);
        if (top > bottom) std::swap(top, bottom);
    }

    friend constexpr bool operator==(const TopDownRect& a, const TopDownRect& b) noexcept
    {
        return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
    }
};
