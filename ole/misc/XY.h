#pragma once
// XY<T>: a width and height, or a position. XYZ<T>: the index of a cell of a 3D table.

template <class T>
class XY {
public:
    T x;
    T y;

    constexpr XY() noexcept : x(T()), y(T()) {}
    constexpr XY(T x_, T y_) noexcept : x(x_), y(y_) {}
    XY(const XY&) = default;
    XY& operator=(const XY&) = default;
    virtual ~XY() = default;

    friend bool operator==(const XY& a, const XY& b) noexcept { return a.x == b.x && a.y == b.y; }
    friend bool operator!=(const XY& a, const XY& b) noexcept { return !(a == b); }
};

template <class T>
class XYZ {
public:
    T x;
    T y;
    T z;

    constexpr XYZ() noexcept : x(T()), y(T()), z(T()) {}
    constexpr XYZ(T x_, T y_, T z_) noexcept : x(x_), y(y_), z(z_) {}

    friend bool operator==(const XYZ& a, const XYZ& b) noexcept
    {
        return a.x == b.x && a.y == b.y && a.z == b.z;
    }
    friend bool operator!=(const XYZ& a, const XYZ& b) noexcept { return !(a == b); }
};
