#pragma once
// What a document's bit depth means for its channels and pixel buffers. Only 8, 16 and 32 have a
// meaning; every other depth yields nothing and its callers refuse it.
#include <cstdint>
#include <optional>

#include "psdkit/platform/image/ChannelDataCompressionType.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"

namespace psdkit {

/// Unsigned 8-bit, unsigned 16-bit or 32-bit float samples.
[[nodiscard]] constexpr std::optional<image::SampleType> sampleTypeForDepth(std::int64_t bitDepth) noexcept
{
    switch (bitDepth) {
    case 8:
        return image::SampleType::uint8;
    case 16:
        return image::SampleType::uint16;
    case 32:
        return image::SampleType::float32;
    default:
        return std::nullopt;
    }
}

/// The pixel type of colour images (layer content, the composite): ARGB8, RGBA16 or RGBA32.
[[nodiscard]] constexpr std::optional<image::PixelFormat> colorPixelFormat(std::int64_t bitDepth) noexcept
{
    switch (bitDepth) {
    case 8:
        return image::PixelFormat::argb8;
    case 16:
        return image::PixelFormat::rgba16;
    case 32:
        return image::PixelFormat::rgba32;
    default:
        return std::nullopt;
    }
}

/// The pixel type of one-channel images (masks, alpha channels): Gray8, Gray16 or Gray32.
[[nodiscard]] constexpr std::optional<image::PixelFormat> grayPixelFormat(std::int64_t bitDepth) noexcept
{
    switch (bitDepth) {
    case 8:
        return image::PixelFormat::gray8;
    case 16:
        return image::PixelFormat::gray16;
    case 32:
        return image::PixelFormat::gray32;
    default:
        return std::nullopt;
    }
}

} // namespace psdkit
