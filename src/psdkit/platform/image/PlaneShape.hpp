#pragma once
// Internal to the image core: the overflow-checked byte counts of a plane and of a buffer.
#include <cstddef>
#include <cstdint>

#include "psdkit/core/CheckedArithmetic.hpp"
#include "psdkit/platform/image/Geometry.hpp"
#include "psdkit/platform/image/ImageError.hpp"

namespace psdkit::detail {

/// `a × b` as a byte count, or `image::ImageError::imageTooLarge` when it exceeds PTRDIFF_MAX.
[[nodiscard]] inline std::size_t imageByteCount(std::size_t a, std::size_t b)
{
    const auto bytes = checkedByteCount(a, b);
    if (!bytes) {
        throw image::ImageException(image::ImageError::imageTooLarge);
    }
    return *bytes;
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
    static PlaneShape make(image::IntegralSize size, std::size_t sampleBytes)
    {
        if (size.width < 0 || size.height < 0) {
            throw image::ImageException(image::ImageError::invalidSize);
        }
        PlaneShape s;
        s.width = static_cast<std::size_t>(size.width);
        s.height = static_cast<std::size_t>(size.height);
        s.sampleBytes = sampleBytes;
        s.rowBytes = imageByteCount(s.width, sampleBytes);
        s.planeBytes = imageByteCount(s.rowBytes, s.height);
        return s;
    }
};

} // namespace psdkit::detail
