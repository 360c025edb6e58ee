#pragma once

/// @file
/// XY<T>: a plain pair of coordinates (a position, a size, a pair of settings), compared member-wise.
/// A value type with no resources; safe to copy between threads.

/// A pair of coordinates, compared member-wise.
template <class T>
struct XY {
    T x{};
    T y{};

    constexpr XY() = default;
    constexpr XY(T x_, T y_) : x(x_), y(y_) {}

    friend constexpr bool operator==(const XY& a, const XY& b) { return a.x == b.x && a.y == b.y; }
    friend constexpr bool operator!=(const XY& a, const XY& b) { return !(a == b); }
    friend constexpr XY operator+(const XY& a, const XY& b) { return XY(a.x + b.x, a.y + b.y); }
    friend constexpr XY operator-(const XY& a, const XY& b) { return XY(a.x - b.x, a.y - b.y); }
};
