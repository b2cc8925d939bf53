#pragma once
// Integer and floating rectangles and sizes of the image core.
#include "psdkit/Export.hpp"
#include <cmath>
#include <cstdint>

namespace psdkit::image {

/// A size in whole pixels. Width and height may be negative only where a caller says so.
struct PSDKIT_EXPORT IntegralSize {
    std::int64_t width = 0;  ///< Columns.
    std::int64_t height = 0; ///< Rows.
    /// Equal when width and height are.
    friend bool operator==(const IntegralSize&, const IntegralSize&) = default;
};

/// An integer rectangle as origin and extent; width and height may be negative (the rectangle
/// then extends to the left of / above its origin).
struct PSDKIT_EXPORT IntegralRect {
    std::int64_t x = 0;      ///< Column of the origin.
    std::int64_t y = 0;      ///< Row of the origin.
    std::int64_t width = 0;  ///< Extent to the right (negative: to the left).
    std::int64_t height = 0; ///< Extent downwards (negative: upwards).
    /// Equal when origin and extent are.
    friend bool operator==(const IntegralRect&, const IntegralRect&) = default;
};

} // namespace psdkit::image

namespace psdkit {

/// A floating-point rectangle as origin and extent (the extent may be negative).
struct PSDKIT_EXPORT CGRect {
    double x = 0;      ///< Horizontal position of the origin.
    double y = 0;      ///< Vertical position of the origin.
    double width = 0;  ///< Horizontal extent.
    double height = 0; ///< Vertical extent.
    /// Equal when origin and extent are.
    friend bool operator==(const CGRect&, const CGRect&) = default;
};

/// The smallest rectangle with integral edges that contains `r`: the rectangle is first made
/// non-negative in extent, then its minimum edges are rounded down and its maximum edges up.
/// Non-finite input gives non-finite output.
[[nodiscard]] inline CGRect CGRectIntegral(const CGRect& r) noexcept
{
    const double minX = std::floor(r.width < 0 ? r.x + r.width : r.x);
    const double minY = std::floor(r.height < 0 ? r.y + r.height : r.y);
    const double maxX = std::ceil(r.width < 0 ? r.x : r.x + r.width);
    const double maxY = std::ceil(r.height < 0 ? r.y : r.y + r.height);
    return CGRect{minX, minY, maxX - minX, maxY - minY};
}

} // namespace psdkit
