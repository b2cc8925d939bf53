#pragma once
// Colour pixel buffers from and to interleaved red, green, blue, transparency samples, whatever
// the buffer's memory order (8-bit buffers keep transparency first, 16- and 32-bit buffers last).
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "psdkit/Export.hpp"
#include "psdkit/platform/image/Geometry.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit::image {

/// A new `PixelARGB8` buffer of `size` from `rgba`: width × height pixels, row after row, each
/// four bytes red, green, blue, transparency (255 opaque). The caller owns the result.
/// Throws ImageException: invalidSize (negative width or height), imageTooLarge, rawSizeMismatch
/// (`rgba` does not hold exactly width × height × 4 samples).
[[nodiscard]] PSDKIT_EXPORT std::shared_ptr<PixelBuffer<PixelARGB8>>
pixelBufferFromRGBA(IntegralSize size, std::span<const std::uint8_t> rgba);
/// The same for a `PixelRGBA16` buffer (samples 0 to 65535, 65535 opaque).
[[nodiscard]] PSDKIT_EXPORT std::shared_ptr<PixelBuffer<PixelRGBA16>>
pixelBufferFromRGBA(IntegralSize size, std::span<const std::uint16_t> rgba);
/// The same for a `PixelRGBA32` buffer (samples 0.0 to 1.0, 1.0 opaque).
[[nodiscard]] PSDKIT_EXPORT std::shared_ptr<PixelBuffer<PixelRGBA32>>
pixelBufferFromRGBA(IntegralSize size, std::span<const float> rgba);

/// The pixels of an 8-bit colour buffer as interleaved red, green, blue, transparency bytes.
[[nodiscard]] PSDKIT_EXPORT std::vector<std::uint8_t> interleavedRGBA(const PixelBuffer<PixelARGB8>& buffer);
/// The pixels of a 16-bit colour buffer as interleaved red, green, blue, transparency samples.
[[nodiscard]] PSDKIT_EXPORT std::vector<std::uint16_t>
interleavedRGBA(const PixelBuffer<PixelRGBA16>& buffer);
/// The pixels of a 32-bit colour buffer as interleaved red, green, blue, transparency samples.
[[nodiscard]] PSDKIT_EXPORT std::vector<float> interleavedRGBA(const PixelBuffer<PixelRGBA32>& buffer);

} // namespace psdkit::image
