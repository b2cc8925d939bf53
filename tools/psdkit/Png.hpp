#pragma once
// PNG reading and writing for the tool, on libspng.
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit::cli {

/// A decoded PNG as RGBA samples, four per pixel, row after row. `sampleBits` is 8 (samples
/// 0..255) for PNGs of up to 8 bits per sample and 16 (0..65535) for 16-bit PNGs. Grey, palette
/// and transparency-chunk images are expanded to RGBA; gamma is not applied.
struct RgbaImage {
    std::int64_t width = 0;
    std::int64_t height = 0;
    int sampleBits = 8;
    std::vector<std::uint16_t> samples;
};

/// Decodes a PNG. Throws InputError for data that is not a valid PNG or that would decode to more
/// than `maximumDecodedBytes`.
[[nodiscard]] RgbaImage decodePng(std::span<const std::uint8_t> png);

/// The largest image `decodePng` accepts, in decoded bytes (1 GiB).
inline constexpr std::size_t maximumDecodedBytes = std::size_t{1} << 30;

/// Samples ready for a PNG: `channels` 1 (grey) or 4 (RGBA), `bitDepth` 8 or 16, 16-bit samples
/// big-endian, rows without padding.
struct PngPixels {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    int channels = 4;
    int bitDepth = 8;
    std::vector<std::uint8_t> data;
    /// True when the source had 32-bit float samples, clipped to 0..1 and written as 16-bit.
    bool toneMapped = false;
};

/// The pixels of a buffer as PNG samples: 8-bit types stay 8-bit, 16-bit stay 16-bit, 32-bit
/// float samples are clipped to 0..1 (NaN as 0) and written as 16-bit. Nothing for an empty
/// buffer or one wider or taller than a PNG can be.
[[nodiscard]] std::optional<PngPixels> pngPixels(const image::PixelBufferType& buffer);

/// What besides the pixels goes into a PNG.
struct PngOptions {
    /// An ICC profile (iCCP chunk) and the name it is filed under.
    std::optional<std::vector<std::uint8_t>> iccProfile;
    std::string iccProfileName;
};

/// Encodes a PNG: zlib level 1, run-length strategy, the SUB filter on every row (fast and
/// nearly as small as the defaults on image data). Throws InputError when libspng refuses.
[[nodiscard]] std::vector<std::uint8_t> encodePng(const PngPixels& pixels, const PngOptions& options);

} // namespace psdkit::cli
