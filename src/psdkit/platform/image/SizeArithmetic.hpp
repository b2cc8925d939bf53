#pragma once
// Internal to the image core: overflow-checked size arithmetic for plane and buffer byte counts.
#include <cstddef>
#include <cstdint>
#include <limits>

#include "psdkit/platform/image/Geometry.hpp"
#include "psdkit/platform/image/ImageError.hpp"

namespace psdkit::image::detail {

/// `a × b`, or `ImageError::imageTooLarge` when the product does not fit `std::size_t` (or, to keep
/// pointer differences meaningful, exceeds PTRDIFF_MAX).
[[nodiscard]] inline std::size_t checkedMultiply(std::size_t a, std::size_t b)
{
    constexpr auto limit = static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max());
    if (a != 0 && b > limit / a) {
        throw ImageException(ImageError::imageTooLarge);
    }
    return a * b;
}

/// The shape of one plane: its rows and the bytes of each row, checked against overflow.
struct PlaneShape {
    std::size_t width = 0;
    std::size_t height = 0;
    std::size_t sampleBytes = 1;
    std::size_t rowBytes = 0;
    std::size_t planeBytes = 0;

    /// Throws `invalidSize` for a negative width or height and `imageTooLarge` when a byte count
    /// overflows.
    static PlaneShape make(IntegralSize size, std::size_t sampleBytes)
    {
        if (size.width < 0 || size.height < 0) {
            throw ImageException(ImageError::invalidSize);
        }
        PlaneShape s;
        s.width = static_cast<std::size_t>(size.width);
        s.height = static_cast<std::size_t>(size.height);
        s.sampleBytes = sampleBytes;
        s.rowBytes = checkedMultiply(s.width, sampleBytes);
        s.planeBytes = checkedMultiply(s.rowBytes, s.height);
        return s;
    }
};

} // namespace psdkit::image::detail
