#pragma once
// The pixel types of the image core and what they are made of.
#include "psdkit/Export.hpp"
#include <cstddef>
#include <cstdint>
#include <optional>

#include "psdkit/platform/image/ChannelDataCompressionType.hpp"

namespace psdkit::image {

/// Four 8-bit samples in memory order transparency, red, green, blue.
struct PSDKIT_EXPORT PixelARGB8 {
    std::uint8_t a; ///< Transparency, 255 opaque.
    std::uint8_t r; ///< Red.
    std::uint8_t g; ///< Green.
    std::uint8_t b; ///< Blue.
    /// Equal when all samples are.
    friend bool operator==(const PixelARGB8&, const PixelARGB8&) = default;
};
/// Four native-endian 16-bit samples red, green, blue, transparency.
struct PSDKIT_EXPORT PixelRGBA16 {
    std::uint16_t r; ///< Red.
    std::uint16_t g; ///< Green.
    std::uint16_t b; ///< Blue.
    std::uint16_t a; ///< Transparency, 65535 opaque.
    /// Equal when all samples are.
    friend bool operator==(const PixelRGBA16&, const PixelRGBA16&) = default;
};
/// Four single-precision samples red, green, blue, transparency.
struct PSDKIT_EXPORT PixelRGBA32 {
    float r; ///< Red.
    float g; ///< Green.
    float b; ///< Blue.
    float a; ///< Transparency, 1.0 opaque.
    /// Equal when all samples are (NaN is unequal to itself).
    friend bool operator==(const PixelRGBA32&, const PixelRGBA32&) = default;
};
/// One 8-bit grey (or mask) sample.
struct PSDKIT_EXPORT PixelGray8 {
    std::uint8_t v; ///< The sample.
    /// Equal when the samples are.
    friend bool operator==(const PixelGray8&, const PixelGray8&) = default;
};
/// One native-endian 16-bit grey (or mask) sample.
struct PSDKIT_EXPORT PixelGray16 {
    std::uint16_t v; ///< The sample.
    /// Equal when the samples are.
    friend bool operator==(const PixelGray16&, const PixelGray16&) = default;
};
/// One single-precision grey (or mask) sample.
struct PSDKIT_EXPORT PixelGray32 {
    float v; ///< The sample.
    /// Equal when the samples are (NaN is unequal to itself).
    friend bool operator==(const PixelGray32&, const PixelGray32&) = default;
};

/// The pixel types as a runtime value.
enum class PixelFormat { argb8, rgba16, rgba32, gray8, gray16, gray32 };

/// The colour pixel type for `bitsPerSample` bits per sample (a document's depth): 8 gives
/// `argb8`, 16 `rgba16`, 32 `rgba32`; any other depth has none.
[[nodiscard]] constexpr std::optional<PixelFormat>
colorPixelFormatForDepth(std::int64_t bitsPerSample) noexcept
{
    switch (bitsPerSample) {
    case 8:
        return PixelFormat::argb8;
    case 16:
        return PixelFormat::rgba16;
    case 32:
        return PixelFormat::rgba32;
    default:
        return std::nullopt;
    }
}

/// The one-channel pixel type (masks, alpha channels) for `bitsPerSample` bits per sample: 8 gives
/// `gray8`, 16 `gray16`, 32 `gray32`; any other depth has none.
[[nodiscard]] constexpr std::optional<PixelFormat>
grayPixelFormatForDepth(std::int64_t bitsPerSample) noexcept
{
    switch (bitsPerSample) {
    case 8:
        return PixelFormat::gray8;
    case 16:
        return PixelFormat::gray16;
    case 32:
        return PixelFormat::gray32;
    default:
        return std::nullopt;
    }
}

/// What a pixel type is made of. `Sample` is the C++ type of one sample, `format` and `sampleType`
/// the runtime values of the pixel type and its sample type. `channelCount` is 4 for colour (red,
/// green, blue, transparency) and 1 for grey; `memoryIndex[c]` is the position in the pixel of
/// logical channel c, where the logical order is red, green, blue, transparency (or the single grey
/// channel). Specialised for the six pixel types (the specialisations are left out of the API
/// reference: their members are the ones described here).
template <typename P> struct PixelTraits;

/// @cond

template <> struct PixelTraits<PixelARGB8> {
    using Sample = std::uint8_t;
    static constexpr PixelFormat format = PixelFormat::argb8;
    static constexpr SampleType sampleType = SampleType::uint8;
    static constexpr std::size_t channelCount = 4;
    static constexpr std::size_t memoryIndex[4] = {1, 2, 3, 0};
};
template <> struct PixelTraits<PixelRGBA16> {
    using Sample = std::uint16_t;
    static constexpr PixelFormat format = PixelFormat::rgba16;
    static constexpr SampleType sampleType = SampleType::uint16;
    static constexpr std::size_t channelCount = 4;
    static constexpr std::size_t memoryIndex[4] = {0, 1, 2, 3};
};
template <> struct PixelTraits<PixelRGBA32> {
    using Sample = float;
    static constexpr PixelFormat format = PixelFormat::rgba32;
    static constexpr SampleType sampleType = SampleType::float32;
    static constexpr std::size_t channelCount = 4;
    static constexpr std::size_t memoryIndex[4] = {0, 1, 2, 3};
};
template <> struct PixelTraits<PixelGray8> {
    using Sample = std::uint8_t;
    static constexpr PixelFormat format = PixelFormat::gray8;
    static constexpr SampleType sampleType = SampleType::uint8;
    static constexpr std::size_t channelCount = 1;
    static constexpr std::size_t memoryIndex[1] = {0};
};
template <> struct PixelTraits<PixelGray16> {
    using Sample = std::uint16_t;
    static constexpr PixelFormat format = PixelFormat::gray16;
    static constexpr SampleType sampleType = SampleType::uint16;
    static constexpr std::size_t channelCount = 1;
    static constexpr std::size_t memoryIndex[1] = {0};
};
template <> struct PixelTraits<PixelGray32> {
    using Sample = float;
    static constexpr PixelFormat format = PixelFormat::gray32;
    static constexpr SampleType sampleType = SampleType::float32;
    static constexpr std::size_t channelCount = 1;
    static constexpr std::size_t memoryIndex[1] = {0};
};
/// @endcond

/// The number of channels of a pixel format: 4 for colour, 1 for grey.
[[nodiscard]] constexpr std::size_t channelCount(PixelFormat format) noexcept
{
    return format == PixelFormat::argb8 || format == PixelFormat::rgba16 || format == PixelFormat::rgba32 ? 4
                                                                                                          : 1;
}

/// The sample type of a pixel format.
[[nodiscard]] constexpr SampleType sampleType(PixelFormat format) noexcept
{
    switch (format) {
    case PixelFormat::argb8:
    case PixelFormat::gray8:
        return SampleType::uint8;
    case PixelFormat::rgba16:
    case PixelFormat::gray16:
        return SampleType::uint16;
    case PixelFormat::rgba32:
    case PixelFormat::gray32:
        return SampleType::float32;
    }
    return SampleType::uint8;
}

/// The bytes of one pixel of a format.
[[nodiscard]] constexpr std::size_t bytesPerPixel(PixelFormat format) noexcept
{
    return channelCount(format) * bytesPerSample(sampleType(format));
}

/// The position in a pixel of `format` of logical channel `channel` (0 red, 1 green, 2 blue,
/// 3 transparency; 0 for grey).
[[nodiscard]] constexpr std::size_t memorySlot(PixelFormat format, std::size_t channel) noexcept
{
    return format == PixelFormat::argb8 ? PixelTraits<PixelARGB8>::memoryIndex[channel] : channel;
}

static_assert(sizeof(PixelARGB8) == 4 && sizeof(PixelRGBA16) == 8 && sizeof(PixelRGBA32) == 16);
static_assert(sizeof(PixelGray8) == 1 && sizeof(PixelGray16) == 2 && sizeof(PixelGray32) == 4);

} // namespace psdkit::image
