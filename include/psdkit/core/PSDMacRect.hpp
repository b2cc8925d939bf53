#pragma once
// PSDMacRect: the format's rectangle, top/left/bottom/right with exclusive bottom and right.
#include "psdkit/Export.hpp"
#include <cstdint>

#include "psdkit/platform/image/Geometry.hpp"

namespace psdkit {

/// A rectangle by its four edges in pixels (document coordinates; y grows downwards). A plain value.
struct PSDKIT_EXPORT PSDMacRect {
    std::int64_t top = 0;    ///< First row inside.
    std::int64_t left = 0;   ///< First column inside.
    std::int64_t bottom = 0; ///< First row below the rectangle.
    std::int64_t right = 0;  ///< First column right of the rectangle.

    constexpr PSDMacRect() = default;
    /// Stores the four edges unchecked (an inverted rectangle is allowed).
    constexpr PSDMacRect(std::int64_t top_, std::int64_t left_, std::int64_t bottom_, std::int64_t right_)
        : top(top_), left(left_), bottom(bottom_), right(right_)
    {
    }
    /// From an integer rectangle whose extent may be negative; the result is never inverted.
    explicit PSDMacRect(const image::IntegralRect& rect);
    /// From the integral form (`CGRectIntegral`) of a floating rectangle.
    /// Throws `PSDException(readParameterError)` when that form is not finite or its edges do
    /// not fit signed 64-bit integers.
    explicit PSDMacRect(const CGRect& rect);

    /// `right - left` (negative for an inverted rectangle).
    [[nodiscard]] constexpr std::int64_t width() const noexcept { return right - left; }
    /// `bottom - top` (negative for an inverted rectangle).
    [[nodiscard]] constexpr std::int64_t height() const noexcept { return bottom - top; }
    /// Width and height.
    [[nodiscard]] constexpr image::IntegralSize size() const noexcept { return {width(), height()}; }
    /// True when the width or the height is exactly zero (a negative extent is not empty).
    [[nodiscard]] constexpr bool isEmpty() const noexcept { return right == left || bottom == top; }
    /// The rectangle as origin (left, top) and extent, in floating point.
    [[nodiscard]] CGRect cg() const noexcept
    {
        return CGRect{static_cast<double>(left), static_cast<double>(top), static_cast<double>(width()),
                      static_cast<double>(height())};
    }

    /// Equal when all four edges are.
    friend constexpr bool operator==(const PSDMacRect&, const PSDMacRect&) = default;
};

} // namespace psdkit
