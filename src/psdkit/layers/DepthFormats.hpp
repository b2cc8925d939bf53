#pragma once
// What a document's bit depth means for its channels (its pixel types are the image core's
// `colorPixelFormatForDepth` and `grayPixelFormatForDepth`). Only 8, 16 and 32 have a meaning; every
// other depth yields nothing and its callers refuse it.
#include <cstdint>
#include <optional>

#include "psdkit/platform/image/ChannelDataCompressionType.hpp"

namespace psdkit::detail {

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

} // namespace psdkit::detail
