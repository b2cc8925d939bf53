#pragma once
// Pixel buffers from channel data at a document's bit depth: the colour images of layers and of
// the composite (four channels: red, green, blue, transparency) and the grey images of masks and
// alpha channels (one channel). Shared by the layer and document readers.
#include <cstdint>
#include <memory>
#include <span>

#include "psdkit/platform/image/ChannelData.hpp"
#include "psdkit/platform/image/Geometry.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit::detail {

/// A fully opaque, uncompressed, big-endian transparency channel of `size` at `bitDepth`
/// (FF, FF FF, or 3F 80 00 00 per sample), to go with the colour channel `sibling`.
/// Throws PSDException(readParameterError) for another depth, and the image core's imageTooLarge
/// when the plane is larger than `sibling`'s stored bytes could possibly decode to (so a
/// hostile header never makes us allocate a plane the file cannot back).
[[nodiscard]] image::AnyChannelData opaqueChannel(std::int64_t bitDepth, image::IntegralSize size,
                                                  const image::AnyChannelData& sibling);

/// An ARGB8, RGBA16 or RGBA32 buffer (by depth) decoded from four channels, a large one on the
/// image core's worker thread beside the caller's when `mayUseWorkerThread`. Throws the image
/// core's error, or PSDException(readParameterError) for a depth other than 8, 16, 32.
[[nodiscard]] std::shared_ptr<image::PixelBufferType>
colorImage(std::int64_t bitDepth, image::IntegralSize size,
           std::span<const image::AnyChannelData* const> channels, bool mayUseWorkerThread = true);

/// Decodes four channels as `colorImage` does, but straight into `destination`: every pixel's
/// samples in the channels' order (red, green, blue, transparency), native-endian, the rows of a
/// large image spread over up to `threads` threads. Throws what `colorImage` throws, and the image
/// core's rawSizeMismatch, before writing anything, when `destination` does not hold exactly the
/// image's bytes; a decoding failure may leave `destination` partly written.
void decodeColorInto(std::int64_t bitDepth, image::IntegralSize size,
                     std::span<const image::AnyChannelData* const> channels,
                     std::span<std::uint8_t> destination, unsigned threads);

/// A Gray8, Gray16 or Gray32 buffer decoded from one channel; errors as `colorImage`.
[[nodiscard]] std::shared_ptr<image::PixelBufferType>
grayImage(std::int64_t bitDepth, image::IntegralSize size,
          std::span<const image::AnyChannelData* const> channels, bool mayUseWorkerThread = true);

} // namespace psdkit::detail
